// SPDX-License-Identifier: Apache-2.0
//
// Fake display manager: the event masks that were registered with it, in order. Any thread.
#pragma once

#include <android/hardware/display/BnDisplayManager.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "MortalService.h"
#include "ValueMutex.h"

namespace NQS::OS {

class FakeDisplayManager : public MortalService<android::hardware::display::BnDisplayManager> {
public:
    struct World {
        std::vector<int64_t> masks;
        android::sp<android::hardware::display::IDisplayManagerCallback> callback;
        android::binder::Status status;
        /** Run by each registration, with no lock held. */
        std::function<void()> onRegister;
    };

    ValueMutexBase<World> world;

    std::vector<int64_t> masks() {
        return world.access([](World& w) { return w.masks; });
    }
    /** The callback of the last registration; null when there was none. */
    android::sp<android::hardware::display::IDisplayManagerCallback> callback() {
        return world.access([](World& w) { return w.callback; });
    }

    android::binder::Status registerCallbackWithEventMask(
            const android::sp<android::hardware::display::IDisplayManagerCallback>& callback,
            int64_t eventMask) override {
        const auto hook = world.access([](World& w) { return w.onRegister; });
        if (hook) hook();
        return world.access([&](World& w) {
            w.masks.push_back(eventMask);
            w.callback = callback;
            return w.status;
        });
    }
};

}  // namespace NQS::OS
