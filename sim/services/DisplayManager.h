// SPDX-License-Identifier: Apache-2.0
// The simulated display manager ("display"): keeps callbacks with their masks, tells of displays.
#pragma once

#include <android/hardware/display/BnDisplayManager.h>

#include "services/ObserverList.h"
#include "services/SimulatedService.h"

namespace sim {

class DisplayManager : public android::hardware::display::BnDisplayManager,
                       public SimulatedService {
public:
    android::binder::Status registerCallbackWithEventMask(
            const android::sp<android::hardware::display::IDisplayManagerCallback>& callback,
            int64_t eventMask) override;

    /** Reaches only callbacks whose mask asks for the event. */
    [[nodiscard]] size_t tell(const Notice& notice) override;
    [[nodiscard]] bool awaitObserver(int pid, std::chrono::milliseconds timeout) override;
    /** {"masks": {"PID": MASK}}: what every process asked for last. */
    [[nodiscard]] Json::Value status() const override;

private:
    ObserverList<android::hardware::display::IDisplayManagerCallback> mCallbacks;
};

}  // namespace sim
