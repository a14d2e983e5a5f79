// SPDX-License-Identifier: Apache-2.0
//
// Focus service: the listeners of other processes, and the notification.
#define LOG_TAG "VrFocus"

#include <binder/IInterface.h>
#include <binder/IPCThreadState.h>
#include <binder/Status.h>
#include <log/log.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "VrFocusService.h"
#include "VrFocusServiceAccess.h"

namespace NQS::OS {

using android::IBinder;
using android::IInterface;
using android::IPCThreadState;
using android::sp;
using android::String16;
using android::wp;
using android::binder::Status;
using velmar::internal::IVrFocusListener;
using velmar::internal::IVrTopActivityListener;

namespace {

Status refuse(int32_t exceptionCode, bool* outResult) {
    *outResult = false;
    return Status::fromExceptionCode(exceptionCode);
}

/** Adds the caller's listener and links its death; refused when the caller has one already. */
template <typename Listener>
Status addListener(std::map<int32_t, sp<Listener>>& listeners, const sp<Listener>& listener,
                   const sp<IBinder::DeathRecipient>& deathNotifier, bool* outResult) {
    const int32_t pid = IPCThreadState::self()->getCallingPid();
    if (!listeners.emplace(pid, listener).second) {
        ALOGE("entry for pid %d already exists", pid);
        return refuse(Status::EX_ILLEGAL_ARGUMENT, outResult);
    }
    // A listener that is dead already stays on record; calls to it fail and harm nobody.
    (void)IInterface::asBinder(listener)->linkToDeath(deathNotifier, /*cookie=*/nullptr,
                                                      /*flags=*/0);
    *outResult = true;
    return Status::ok();
}

/** Removes the caller's listener. Its death link stays: a later notice just finds nothing. */
template <typename Listener>
Status removeListener(std::map<int32_t, sp<Listener>>& listeners, bool* outResult) {
    const int32_t pid = IPCThreadState::self()->getCallingPid();
    if (listeners.erase(pid) == 0) {
        ALOGE("can't find specified pid: %d", pid);
        return refuse(Status::EX_ILLEGAL_ARGUMENT, outResult);
    }
    *outResult = true;
    return Status::ok();
}

/** Erases the first entry, by ascending pid, whose listener is this binder. */
template <typename Listener>
bool eraseFirst(std::map<int32_t, sp<Listener>>& listeners, const wp<IBinder>& binder) {
    const auto entry = std::find_if(listeners.begin(), listeners.end(), [&binder](const auto& it) {
        return binder == IInterface::asBinder(it.second);
    });
    if (entry == listeners.end()) return false;
    listeners.erase(entry);
    return true;
}

}  // namespace

Status VrFocusService::registerVrFocusListener(const sp<IVrFocusListener>& listener,
                                               int32_t focusType, bool* outResult) {
    if (!checkCallingPermission(CallerPermission::ReadFocusState)) {
        return refuse(Status::EX_SECURITY, outResult);
    }
    if (!isFocusType(focusType) || listener == nullptr) {
        return refuse(Status::EX_ILLEGAL_ARGUMENT, outResult);
    }
    std::lock_guard lock(mListeners.mutex);
    return addListener(mListeners.focus[static_cast<FocusType>(focusType)], listener,
                       mDeathNotifier, outResult);
}

Status VrFocusService::unregisterVrFocusListener(int32_t focusType, bool* outResult) {
    if (!checkCallingPermission(CallerPermission::ReadFocusState)) {
        return refuse(Status::EX_SECURITY, outResult);
    }
    if (!isFocusType(focusType)) return refuse(Status::EX_ILLEGAL_ARGUMENT, outResult);
    std::lock_guard lock(mListeners.mutex);
    return removeListener(mListeners.focus[static_cast<FocusType>(focusType)], outResult);
}

Status VrFocusService::registerVrTopActivityListener(const sp<IVrTopActivityListener>& listener,
                                                     bool* outResult) {
    if (!checkCallingPermission(CallerPermission::ReadFocusState)) {
        return refuse(Status::EX_SECURITY, outResult);
    }
    if (listener == nullptr) return refuse(Status::EX_ILLEGAL_ARGUMENT, outResult);
    std::lock_guard lock(mListeners.mutex);
    return addListener(mListeners.topActivity, listener, mDeathNotifier, outResult);
}

Status VrFocusService::unregisterVrTopActivityListener(bool* outResult) {
    if (!checkCallingPermission(CallerPermission::ReadFocusState)) {
        return refuse(Status::EX_SECURITY, outResult);
    }
    std::lock_guard lock(mListeners.mutex);
    return removeListener(mListeners.topActivity, outResult);
}

void VrFocusService::DeathNotifier::binderDied(const wp<IBinder>& who) {
    if (const auto service = mService.promote()) service->removeListenersForBinder(who);
}

void VrFocusService::removeListenersForBinder(const wp<IBinder>& binder) {
    std::lock_guard lock(mListeners.mutex);
    for (auto& [type, listeners] : mListeners.focus) {
        // One notice takes one focus listener at most, of the lowest type.
        if (eraseFirst(listeners, binder)) break;
    }
    eraseFirst(mListeners.topActivity, binder);
}

// The status of a listener's call is dropped below: a listener that is slow, dead or out of
// buffer space is its own process's concern, and its death notice clears it away.

void VrFocusService::notifyAll() {
    {
        std::lock_guard lock(mListeners.mutex);
        for (const auto& [type, listeners] : mListeners.focus) {
            for (const auto& [pid, listener] : listeners) {
                (void)listener->onVrFocusChanged(static_cast<int32_t>(type));
            }
        }
    }
    notifyTopActivityListeners();
}

void VrFocusService::notifyTopActivityListeners() {
    const String16 topActivity = mPolicy->getTopActivity();
    const std::optional<ImmersiveApp> immersive = mPolicy->getImmersiveApp();
    const ImmersiveApp app = immersive.value_or(ImmersiveApp());

    std::lock_guard lock(mListeners.mutex);
    for (const auto& [pid, listener] : mListeners.topActivity) {
        (void)listener->onVrTopActivityChanged(topActivity, app);
    }
    // The helper gets the top activity of this moment: the passes of other threads may have come
    // in between since it was asked above.
    mConnectionManager->forwardTopActivityChanged(mPolicy->getTopActivity());
    std::optional<String16> immersivePackage;
    if (immersive) immersivePackage = immersive->packageName;
    mConnectionManager->forwardImmersiveAppChanged(immersivePackage);
}

}  // namespace NQS::OS
