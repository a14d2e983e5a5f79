// SPDX-License-Identifier: Apache-2.0
//
// Access, by uid.
#include "Access.h"

#include <binder/IPCThreadState.h>
#include <unistd.h>

namespace servicemanager {

namespace {

// The platform's ranges of user ids, repeated for each Android user.
constexpr uid_t kUserOffset = 100000;
constexpr uid_t kFirstApp = 10000;
constexpr uid_t kFirstIsolated = 90000;

uid_t appId(uid_t uid) {
    return uid % kUserOffset;
}

}  // namespace

Caller Access::caller() const {
    const auto* state = android::IPCThreadState::self();
    const pid_t pid = state->getCallingPid();
    // Outside of a call the runtime names the kernel's uid.
    return {.debugPid = pid, .uid = pid == getpid() ? mOwnUid : state->getCallingUid()};
}

bool Access::canAdd(const Caller& caller, const std::string& /*name*/) const {
    return caller.uid == mOwnUid || appId(caller.uid) < kFirstApp;
}

bool Access::canFind(const Caller& caller, bool allowIsolated) const {
    return allowIsolated || caller.uid == mOwnUid || appId(caller.uid) < kFirstIsolated;
}

}  // namespace servicemanager
