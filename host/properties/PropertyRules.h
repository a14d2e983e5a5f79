// SPDX-License-Identifier: Apache-2.0
//
// Property rules: which names and values there may be.
#pragma once

#include <string>
#include <string_view>

namespace hostproperties {

/** Why a name is none, or empty: 1 to PROP_NAME_MAX - 1 of letters, digits, "_", "-", "@", ":" and
 * ".", the last neither first, last nor doubled. */
[[nodiscard]] std::string whyNoName(std::string_view name);

/** Why a value is none, or empty: at most PROP_VALUE_MAX - 1 bytes, none a control character, so
 * that a list shows one property a line. */
[[nodiscard]] std::string whyNoValue(std::string_view value);

/** Whether a name can be set once only. */
[[nodiscard]] bool isReadOnly(std::string_view name);

}  // namespace hostproperties
