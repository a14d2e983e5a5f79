// SPDX-License-Identifier: Apache-2.0
//
// Fake activity manager: answers from a made-up world and keeps the observers registered with it.
//
// Calls are logged in order, as text: "panel 10050/4321", "displays 4321 [0 5]". Any thread.
#pragma once

#include <android/app/BnActivityManager.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "CallLog.h"
#include "FocusClient.h"
#include "MortalService.h"
#include "ValueMutex.h"

namespace NQS::OS {

class FakeActivityManager : public MortalService<android::app::BnActivityManager> {
public:
    struct World {
        std::set<FocusClient> panels;
        std::set<FocusClient> onPrimary;
        /** By pid. */
        std::map<int, std::vector<int>> displays;
        android::String16 topActivity;
        /** Ends each query, after its out-value has been filled. */
        android::binder::Status status;
        /** Run by each registration, with no lock held. */
        std::function<void()> onRegister;
        /** Run by the queries about displays and about the primary one, likewise. */
        std::function<void()> onDisplaysAsked;
        std::function<void()> onPrimaryAsked;
        std::vector<android::sp<android::app::IProcessObserver>> observers;
    };

    ValueMutexBase<World> world;
    CallLog calls;

    /** The observer of the newest registration; null when there is none. */
    android::sp<android::app::IProcessObserver> observer() {
        return world.access([](World& w) -> android::sp<android::app::IProcessObserver> {
            return w.observers.empty() ? nullptr : w.observers.back();
        });
    }
    size_t registrations() {
        return world.access([](World& w) { return w.observers.size(); });
    }

    android::binder::Status registerProcessObserver(
            const android::sp<android::app::IProcessObserver>& observer) override {
        world.access([&](World& w) { w.observers.push_back(observer); });
        run(&World::onRegister);
        return android::binder::Status::ok();
    }
    android::binder::Status unregisterProcessObserver(
            const android::sp<android::app::IProcessObserver>& /*observer*/) override {
        calls.add("unregister");
        return android::binder::Status::ok();
    }
    android::binder::Status hasForegroundPanelService(int32_t pid, int32_t uid,
                                                      bool* out) override {
        calls.add("panel " + text(pid, uid));
        return world.access([&](World& w) {
            *out = w.panels.count({uid, pid}) != 0;
            return w.status;
        });
    }
    android::binder::Status hasActivityOnPrimaryDisplay(int32_t pid, int32_t uid,
                                                        bool* out) override {
        calls.add("primary " + text(pid, uid));
        run(&World::onPrimaryAsked);
        return world.access([&](World& w) {
            *out = w.onPrimary.count({uid, pid}) != 0;
            return w.status;
        });
    }
    /** Leaves what is not asked for in the answer: the world says what comes back. */
    android::binder::Status getDisplaysWithTopActivities(int32_t pid,
                                                         const std::vector<int32_t>& displayIds,
                                                         std::vector<int32_t>* out) override {
        std::string asked;
        for (const int32_t id : displayIds) {
            asked += (asked.empty() ? "" : " ") + std::to_string(id);
        }
        calls.add("displays " + std::to_string(pid) + " [" + asked + "]");
        run(&World::onDisplaysAsked);
        return world.access([&](World& w) {
            *out = w.displays[pid];
            return w.status;
        });
    }
    android::binder::Status getTopActivityOnPrimaryDisplay(android::String16* out) override {
        calls.add("top");
        return world.access([&](World& w) {
            *out = w.topActivity;
            return w.status;
        });
    }

private:
    void run(std::function<void()> World::*hook) {
        const auto function = world.access([&](World& w) { return w.*hook; });
        if (function) function();
    }
    static std::string text(int pid, int uid) {
        return std::to_string(uid) + "/" + std::to_string(pid);
    }
};

}  // namespace NQS::OS
