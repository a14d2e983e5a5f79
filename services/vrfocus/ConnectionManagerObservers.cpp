// SPDX-License-Identifier: Apache-2.0
//
// Observers of the system state tracker: from the wire to the tracker's notices.
#include "ConnectionManagerObservers.h"

namespace NQS::OS {

namespace {

constexpr int32_t kDisplayRemovedEvent = 3;

}  // namespace

android::binder::Status ConnectionManager::ProcessObserverWrapper::onForegroundActivitiesChanged(
        int32_t pid, int32_t uid, bool foregroundActivities) {
    mOwner.onForegroundActivitiesChanged(pid, uid, foregroundActivities);
    return android::binder::Status::ok();
}

android::binder::Status ConnectionManager::ProcessObserverWrapper::onForegroundServicesChanged(
        int32_t pid, int32_t uid, int32_t /*serviceTypes*/) {
    mOwner.onForegroundServicesChanged(pid, uid);
    return android::binder::Status::ok();
}

android::binder::Status ConnectionManager::ProcessObserverWrapper::onProcessDied(int32_t /*pid*/,
                                                                                 int32_t /*uid*/) {
    return android::binder::Status::ok();
}

android::binder::Status ConnectionManager::WindowLayoutObserverWrapper::onFocusedWindowChanged(
        const android::sp<android::IBinder>& /*windowToken*/, int32_t uid, int32_t pid) {
    mOwner.onFocusedWindowChanged({.uid = uid, .pid = pid});
    return android::binder::Status::ok();
}

android::binder::Status ConnectionManager::DisplayManagerCallback::onDisplayEvent(int32_t displayId,
                                                                                  int32_t event) {
    if (event == kDisplayRemovedEvent) mOwner.onDisplayRemoved(displayId);
    return android::binder::Status::ok();
}

}  // namespace NQS::OS
