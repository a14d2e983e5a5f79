// SPDX-License-Identifier: Apache-2.0
// The simulated headset window manager.
#include "services/WindowManager.h"

#include <binder/IPCThreadState.h>

namespace sim {

using android::sp;
using android::binder::Status;
using velmar::internal::ISystemKeyEventHandler;
using velmar::internal::IWindowLayoutObserver;

Status WindowManager::registerWindowLayoutObserver(const sp<IWindowLayoutObserver>& observer,
                                                   bool* out) {
    mObservers.put({observer, android::IPCThreadState::self()->getCallingPid()});
    *out = observer != nullptr;
    return Status::ok();
}

Status WindowManager::unregisterWindowLayoutObserver(const sp<IWindowLayoutObserver>& observer) {
    mObservers.remove(observer);
    return Status::ok();
}

Status WindowManager::registerSystemKeyEventHandler(const sp<ISystemKeyEventHandler>&, bool* out) {
    *out = false;
    return Status::ok();
}

Status WindowManager::unregisterSystemKeyEventHandler(const sp<ISystemKeyEventHandler>&,
                                                      bool* out) {
    *out = false;
    return Status::ok();
}

size_t WindowManager::tell(const Notice& notice) {
    if (notice.kind != Notice::Kind::FocusedWindow) return 0;
    size_t told = 0;
    for (const auto& observer : mObservers.all()) {
        if (observer.remote->onFocusedWindowChanged(mWindow, notice.uid, notice.pid).isOk()) ++told;
    }
    return told;
}

bool WindowManager::awaitObserver(int pid, std::chrono::milliseconds timeout) {
    return mObservers.await(pid, timeout);
}

Json::Value WindowManager::status() const {
    Json::Value value(Json::objectValue);
    value["observers"] = static_cast<Json::UInt>(mObservers.all().size());
    return value;
}

}  // namespace sim
