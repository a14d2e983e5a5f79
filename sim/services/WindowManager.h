// SPDX-License-Identifier: Apache-2.0
// The simulated headset window manager ("VelmarWindowManager"): tells which window has focus.
#pragma once

#include <binder/Binder.h>
#include <velmar/internal/BnVelmarWindowManager.h>

#include "services/ObserverList.h"
#include "services/SimulatedService.h"

namespace sim {

class WindowManager : public velmar::internal::BnVelmarWindowManager, public SimulatedService {
public:
    android::binder::Status registerWindowLayoutObserver(
            const android::sp<velmar::internal::IWindowLayoutObserver>& observer,
            bool* out) override;
    android::binder::Status unregisterWindowLayoutObserver(
            const android::sp<velmar::internal::IWindowLayoutObserver>& observer) override;
    /** No key events here: refused with false, as is the withdrawal. */
    android::binder::Status registerSystemKeyEventHandler(
            const android::sp<velmar::internal::ISystemKeyEventHandler>& handler,
            bool* out) override;
    android::binder::Status unregisterSystemKeyEventHandler(
            const android::sp<velmar::internal::ISystemKeyEventHandler>& handler,
            bool* out) override;

    [[nodiscard]] size_t tell(const Notice& notice) override;
    [[nodiscard]] bool awaitObserver(int pid, std::chrono::milliseconds timeout) override;
    [[nodiscard]] Json::Value status() const override;

private:
    ObserverList<velmar::internal::IWindowLayoutObserver> mObservers;
    // Stands for every window: who it belongs to is said beside it.
    const android::sp<android::IBinder> mWindow{new android::BBinder()};
};

}  // namespace sim
