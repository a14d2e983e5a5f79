// SPDX-License-Identifier: Apache-2.0
//
// Limits: what callers can make the service manager keep.
#pragma once

#include <cstddef>

namespace servicemanager {

/** Bytes of a name: what the platform allows. */
inline constexpr size_t kMaxNameLength = 127;

/** A device has some three hundred services. */
inline constexpr size_t kMaxServices = 4096;

/** Callbacks over all names. A process waits for one name or a few at a time. */
inline constexpr size_t kMaxCallbacks = 4096;

}  // namespace servicemanager
