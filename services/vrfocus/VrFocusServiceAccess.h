// SPDX-License-Identifier: Apache-2.0
//
// Caller access: every question of who may call what, in one place.
#pragma once

#include <cstdint>

namespace NQS::OS {

/** A permission that callers need. */
enum class CallerPermission {
    ReadFocusState,
    GrantTrackingServiceAccessToDisplay,
    Dump,
};

/**
 * Whether the caller of the current transaction may do what the permission covers. Trusted uids
 * (the audio server's) may without being asked about; everybody else, root too, is judged by the
 * platform's permission cache.
 */
bool checkCallingPermission(CallerPermission permission);

/** Whether the current transaction comes from this pid. A call that carries no caller never does.
 */
bool isCallingPid(int32_t pid);

/** Whether the service knows this focus type. */
bool isFocusType(int32_t value);

}  // namespace NQS::OS
