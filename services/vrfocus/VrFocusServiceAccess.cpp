// SPDX-License-Identifier: Apache-2.0
//
// Caller access: see VrFocusServiceAccess.h.
#include "VrFocusServiceAccess.h"

#include <binder/IPCThreadState.h>
#include <binder/PermissionCache.h>
#include <utils/String16.h>

#include <set>

#include "FocusType.h"

namespace NQS::OS {
namespace {

using android::IPCThreadState;
using android::PermissionCache;
using android::String16;

const String16 kReadFocusState("com.velmar.permission.READ_FOCUS_STATE");
const String16 kGrantTrackingServiceAccess(
        "com.velmar.permission.GRANT_TRACKING_SERVICE_ACCESS_TO_DISPLAY");
const String16 kDump("android.permission.DUMP");

/** The audio server's. */
const std::set<uid_t> kTrustedUids = {1041};

const String16& nameOf(CallerPermission permission) {
    switch (permission) {
        case CallerPermission::ReadFocusState:
            return kReadFocusState;
        case CallerPermission::GrantTrackingServiceAccessToDisplay:
            return kGrantTrackingServiceAccess;
        case CallerPermission::Dump:
            break;
    }
    return kDump;
}

}  // namespace

bool checkCallingPermission(CallerPermission permission) {
    const uid_t uid = IPCThreadState::self()->getCallingUid();
    // Root is not trusted by its uid: it goes through the cache, whatever the set may hold.
    if (uid != 0 && kTrustedUids.contains(uid)) return true;
    return PermissionCache::checkCallingPermission(nameOf(permission));
}

bool isCallingPid(int32_t pid) {
    const pid_t caller = IPCThreadState::self()->getCallingPid();
    return caller != 0 && caller == pid;
}

bool isFocusType(int32_t value) {
    // One comparison for both ends: negative values are large ones.
    return static_cast<uint32_t>(value) <= static_cast<uint32_t>(FocusType::InputTracking);
}

}  // namespace NQS::OS
