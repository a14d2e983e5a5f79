// SPDX-License-Identifier: Apache-2.0
// The simulated activity manager.
#include "services/ActivityManager.h"

#include <binder/IPCThreadState.h>

namespace sim {

using android::sp;
using android::String16;
using android::app::IProcessObserver;
using android::binder::Status;

Status ActivityManager::registerProcessObserver(const sp<IProcessObserver>& observer) {
    mObservers.put({observer, android::IPCThreadState::self()->getCallingPid()});
    return Status::ok();
}

Status ActivityManager::unregisterProcessObserver(const sp<IProcessObserver>& observer) {
    mObservers.remove(observer);
    return Status::ok();
}

Status ActivityManager::hasForegroundPanelService(int32_t pid, int32_t uid, bool* out) {
    *out = mWorld.get()->hasForegroundPanelService(pid, uid);
    return Status::ok();
}

Status ActivityManager::hasActivityOnPrimaryDisplay(int32_t pid, int32_t uid, bool* out) {
    *out = mWorld.get()->hasActivityOnPrimaryDisplay(pid, uid);
    return Status::ok();
}

Status ActivityManager::getDisplaysWithTopActivities(int32_t pid,
                                                     const std::vector<int32_t>& displayIds,
                                                     std::vector<int32_t>* out) {
    *out = mWorld.get()->displaysWithTopActivities(pid, displayIds);
    return Status::ok();
}

Status ActivityManager::getTopActivityOnPrimaryDisplay(String16* out) {
    *out = String16(mWorld.get()->topPackageOnPrimaryDisplay().c_str());
    return Status::ok();
}

size_t ActivityManager::tell(const Notice& notice) {
    size_t told = 0;
    for (const auto& observer : mObservers.all()) {
        Status status;
        switch (notice.kind) {
            case Notice::Kind::ForegroundActivities:
                status = observer.remote->onForegroundActivitiesChanged(notice.pid, notice.uid,
                                                                        notice.value != 0);
                break;
            case Notice::Kind::ForegroundServices:
                status = observer.remote->onForegroundServicesChanged(notice.pid, notice.uid,
                                                                      notice.value);
                break;
            case Notice::Kind::ProcessDied:
                status = observer.remote->onProcessDied(notice.pid, notice.uid);
                break;
            case Notice::Kind::DisplayEvent:
            case Notice::Kind::FocusedWindow:
                return 0;
        }
        if (status.isOk()) ++told;
    }
    return told;
}

bool ActivityManager::awaitObserver(int pid, std::chrono::milliseconds timeout) {
    return mObservers.await(pid, timeout);
}

Json::Value ActivityManager::status() const {
    Json::Value value(Json::objectValue);
    value["observers"] = static_cast<Json::UInt>(mObservers.all().size());
    return value;
}

}  // namespace sim
