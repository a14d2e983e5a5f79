// SPDX-License-Identifier: Apache-2.0
//
// Permission questions, asked of the permission controller once per (permission, uid).
//
// Denials are remembered as well as grants, for the life of the process: permissions of a uid do
// not change while it runs. While there is no controller the answer is no, and is not remembered.
// The lookup does not wait for a controller to appear. Thread-safe.
#pragma once

#include <sys/types.h>
#include <utils/String16.h>

#include <cstdint>

namespace android {

class PermissionCache {
public:
    PermissionCache() = delete;

    /**
     * Whether the process whose call is being answered has the permission. Always, when that is
     * this process itself; never, when the call carries no caller (pid 0, as in one-way calls).
     */
    static bool checkCallingPermission(const String16& permission);
    static bool checkCallingPermission(const String16& permission, int32_t* outPid,
                                       int32_t* outUid);

    static bool checkPermission(const String16& permission, pid_t pid, uid_t uid);
};

}  // namespace android
