// SPDX-License-Identifier: Apache-2.0
// The simulated activity manager ("activity"): answers from the world, tells process observers.
#pragma once

#include <android/app/BnActivityManager.h>

#include <string>
#include <vector>

#include "services/ObserverList.h"
#include "services/SimulatedService.h"
#include "services/WorldReplica.h"

namespace sim {

class ActivityManager : public android::app::BnActivityManager, public SimulatedService {
public:
    /** The replica outlives this object. */
    explicit ActivityManager(const WorldReplica& world) : mWorld(world) {}

    android::binder::Status registerProcessObserver(
            const android::sp<android::app::IProcessObserver>& observer) override;
    android::binder::Status unregisterProcessObserver(
            const android::sp<android::app::IProcessObserver>& observer) override;
    android::binder::Status hasForegroundPanelService(int32_t pid, int32_t uid, bool* out) override;
    android::binder::Status hasActivityOnPrimaryDisplay(int32_t pid, int32_t uid,
                                                        bool* out) override;
    android::binder::Status getDisplaysWithTopActivities(int32_t pid,
                                                         const std::vector<int32_t>& displayIds,
                                                         std::vector<int32_t>* out) override;
    android::binder::Status getTopActivityOnPrimaryDisplay(android::String16* out) override;

    [[nodiscard]] size_t tell(const Notice& notice) override;
    [[nodiscard]] bool awaitObserver(int pid, std::chrono::milliseconds timeout) override;
    [[nodiscard]] Json::Value status() const override;

private:
    const WorldReplica& mWorld;
    ObserverList<android::app::IProcessObserver> mObservers;
};

}  // namespace sim
