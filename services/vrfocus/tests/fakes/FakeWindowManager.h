// SPDX-License-Identifier: Apache-2.0
//
// Fake window manager: keeps the layout observers registered with it. Any thread.
#pragma once

#include <velmar/internal/BnVelmarWindowManager.h>

#include <vector>

#include "MortalService.h"
#include "ValueMutex.h"

namespace NQS::OS {

class FakeWindowManager : public MortalService<velmar::internal::BnVelmarWindowManager> {
public:
    using Observer = android::sp<velmar::internal::IWindowLayoutObserver>;

    ValueMutexBase<std::vector<Observer>> observers;

    /** The observer of the newest registration; null when there is none. */
    Observer observer() {
        return observers.access([](std::vector<Observer>& all) -> Observer {
            return all.empty() ? nullptr : all.back();
        });
    }
    size_t registrations() {
        return observers.access([](std::vector<Observer>& all) { return all.size(); });
    }

    android::binder::Status registerWindowLayoutObserver(const Observer& observer,
                                                         bool* out) override {
        observers.access([&](std::vector<Observer>& all) { all.push_back(observer); });
        *out = true;
        return android::binder::Status::ok();
    }
    android::binder::Status unregisterWindowLayoutObserver(const Observer& /*observer*/) override {
        return android::binder::Status::ok();
    }
    android::binder::Status registerSystemKeyEventHandler(
            const android::sp<velmar::internal::ISystemKeyEventHandler>& /*handler*/,
            bool* out) override {
        *out = false;
        return android::binder::Status::ok();
    }
    android::binder::Status unregisterSystemKeyEventHandler(
            const android::sp<velmar::internal::ISystemKeyEventHandler>& /*handler*/,
            bool* out) override {
        *out = false;
        return android::binder::Status::ok();
    }
};

}  // namespace NQS::OS
