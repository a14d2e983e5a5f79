// SPDX-License-Identifier: Apache-2.0
//
// System state tracker: displays with tracking service access, permissions and packages.
#define LOG_TAG "VrFocus"

#include "ConnectionManagerObservers.h"

#include <log/log.h>

namespace NQS::OS {

using android::sp;
using android::String16;

namespace {

constexpr int kMainDisplay = 0;
// The display manager's event masks.
constexpr int64_t kNoEvents = 0;
constexpr int64_t kDisplayRemovedEvents = 2;

}  // namespace

void ConnectionManager::grantTrackingServiceAccess(int displayId) {
    ALOGD("grantTrackingServiceAccess: displayId: %d", displayId);
    if (displayId == kMainDisplay) return;
    mTrackingDisplays.access([&](std::set<int>& displays) {
        const bool isNew = displays.insert(displayId).second;
        if (isNew && displays.size() == 2) setDisplayEventMaskLocked(kDisplayRemovedEvents);
    });
}

void ConnectionManager::revokeTrackingServiceAccess(int displayId) {
    if (displayId == kMainDisplay) return;
    mTrackingDisplays.access([&](std::set<int>& displays) {
        if (displays.erase(displayId) == 0) return;
        ALOGD("revokeTrackingServiceAccess: displayId: %d", displayId);
        if (displays.size() == 1) setDisplayEventMaskLocked(kNoEvents);
    });
}

void ConnectionManager::setDisplayEventMaskLocked(int64_t eventMask) {
    const sp<android::hardware::display::IDisplayManager> displayManager =
            mDisplayManager.getService();
    // Access without the watch would outlive the display and pass to the next one with its id.
    LOG_ALWAYS_FATAL_IF(displayManager == nullptr,
                        "The display manager is not connected: cannot set display event mask %d",
                        static_cast<int>(eventMask));
    (void)displayManager->registerCallbackWithEventMask(mDisplayCallback, eventMask);
}

bool ConnectionManager::checkPermission(const String16& permission, int pid, int uid) {
    const sp<android::IPermissionController> controller = mPermissionController.getService();
    if (controller == nullptr) {
        ALOGE("Failed to initialize PermissionController");
        return false;
    }
    return controller->checkPermission(permission, pid, uid);
}

void ConnectionManager::getPackagesForUid(int uid, android::Vector<String16>& packages) {
    const sp<android::IPermissionController> controller = mPermissionController.getService();
    if (controller == nullptr) {
        ALOGE("No access to the PackageManager, package names unavailable for now...");
        return;
    }
    controller->getPackagesForUid(static_cast<uid_t>(uid), packages);
}

}  // namespace NQS::OS
