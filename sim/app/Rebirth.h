// SPDX-License-Identifier: Apache-2.0
//
// Ends what this process is and begins anew in its place: same program and pid, same controller,
// another name and perhaps another uid. To everybody else the pid has been reused.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace sim {

/**
 * Returns only when it fails, and then this process is good for nothing but to end. uid: absent for
 * the same; a change needs a process whose real uid is root's (Launch::keepsRoot). environment: as
 * environ.
 */
void beginAnew(const std::string& name, std::optional<uid_t> uid, char** environment);

}  // namespace sim
