// SPDX-License-Identifier: Apache-2.0
//
// Focus types: the kinds of tracking that focus is decided for.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace NQS::OS {

enum class FocusType : int32_t {
    HeadTracking = 0,
    InputTracking = 1,
};

/** Names for dumps, indexed by the numeric value of the type. */
inline const std::array<std::string, 2> kFocusTypeNames = {"HeadTracking", "InputTracking"};

}  // namespace NQS::OS
