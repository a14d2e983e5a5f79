// SPDX-License-Identifier: Apache-2.0
// The simulated display manager.
#include "services/DisplayManager.h"

#include <binder/IPCThreadState.h>

#include <string>

namespace sim {
namespace {

// Bits of the event mask.
constexpr int64_t kAddedBit = 1;
constexpr int64_t kRemovedBit = 2;
constexpr int64_t kChangedBit = 4;

int64_t bitOf(int event) {
    if (event == Notice::kDisplayAdded) return kAddedBit;
    if (event == Notice::kDisplayRemoved) return kRemovedBit;
    return event == Notice::kDisplayChanged ? kChangedBit : 0;
}

}  // namespace

using android::binder::Status;
using android::hardware::display::IDisplayManagerCallback;

Status DisplayManager::registerCallbackWithEventMask(
        const android::sp<IDisplayManagerCallback>& callback, int64_t eventMask) {
    mCallbacks.put({callback, android::IPCThreadState::self()->getCallingPid(), eventMask});
    return Status::ok();
}

size_t DisplayManager::tell(const Notice& notice) {
    if (notice.kind != Notice::Kind::DisplayEvent) return 0;
    size_t told = 0;
    for (const auto& callback : mCallbacks.all()) {
        if ((callback.mask & bitOf(notice.value)) == 0) continue;
        if (callback.remote->onDisplayEvent(notice.display, notice.value).isOk()) ++told;
    }
    return told;
}

bool DisplayManager::awaitObserver(int pid, std::chrono::milliseconds timeout) {
    return mCallbacks.await(pid, timeout);
}

Json::Value DisplayManager::status() const {
    Json::Value value(Json::objectValue);
    value["masks"] = Json::objectValue;
    for (const auto& callback : mCallbacks.all()) {
        value["masks"][std::to_string(callback.pid)] = static_cast<Json::Int64>(callback.mask);
    }
    return value;
}

}  // namespace sim
