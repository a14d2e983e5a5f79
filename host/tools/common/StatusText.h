// SPDX-License-Identifier: Apache-2.0
//
// Status text: a binder status as people know it.
#pragma once

#include <utils/Errors.h>

#include <string>

namespace tools {

/** "DEAD_OBJECT" for the statuses that have a name, else "status -5 (Input/output error)". */
[[nodiscard]] std::string statusText(android::status_t status);

}  // namespace tools
