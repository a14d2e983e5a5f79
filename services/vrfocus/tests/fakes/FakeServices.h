// SPDX-License-Identifier: Apache-2.0
//
// Fake platform services: each answers from a made-up world, keeps the observers registered with
// it and logs its calls in order, as text. Hooks run with no lock held. Any thread.
#pragma once

#include <android/app/BnActivityManager.h>
#include <android/hardware/display/BnDisplayManager.h>
#include <binder/IPermissionController.h>
#include <utils/String8.h>
#include <velmar/internal/BnVelmarWindowManager.h>
#include <velmar/internal/BnVrFocusHelper.h>

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "CallLog.h"
#include "FocusClient.h"
#include "MortalService.h"
#include "ValueMutex.h"

namespace NQS::OS {

using Hook = std::function<void()>;

/** "panel 10050/4321", "displays 4321 [0 5]", "primary 10050/4321", "top". */
class FakeActivityManager : public MortalService<android::app::BnActivityManager> {
    using Status = android::binder::Status;
    using Observer = android::sp<android::app::IProcessObserver>;

public:
    struct World {
        std::set<FocusClient> panels, onPrimary;
        /** By pid; the world says what comes back, asked for or not. */
        std::map<int, std::vector<int>> displays;
        android::String16 topActivity;
        /** Ends each query, after its out-value has been filled. */
        Status status;
        Hook onRegister, onDisplaysAsked, onPrimaryAsked;
        std::vector<Observer> observers;
    };

    ValueMutexBase<World> world;
    CallLog calls;

    /** The observer of the newest registration. */
    Observer observer() {
        return world.access([](World& w) { return w.observers.back(); });
    }
    size_t registrations() {
        return world.access([](World& w) { return w.observers.size(); });
    }

    Status registerProcessObserver(const Observer& observer) override {
        world.access([&](World& w) { w.observers.push_back(observer); });
        run(&World::onRegister);
        return Status::ok();
    }
    Status unregisterProcessObserver(const Observer& /*observer*/) override {
        calls.add("unregister");
        return Status::ok();
    }
    Status hasForegroundPanelService(int32_t pid, int32_t uid, bool* out) override {
        calls.add("panel " + text(pid, uid));
        return answer(out, [&](World& w) { return w.panels.contains({uid, pid}); });
    }
    Status hasActivityOnPrimaryDisplay(int32_t pid, int32_t uid, bool* out) override {
        calls.add("primary " + text(pid, uid));
        run(&World::onPrimaryAsked);
        return answer(out, [&](World& w) { return w.onPrimary.contains({uid, pid}); });
    }
    Status getDisplaysWithTopActivities(int32_t pid, const std::vector<int32_t>& displayIds,
                                        std::vector<int32_t>* out) override {
        std::string asked;
        for (const int32_t id : displayIds)
            asked += (asked.empty() ? "" : " ") + std::to_string(id);
        calls.add("displays " + std::to_string(pid) + " [" + asked + "]");
        run(&World::onDisplaysAsked);
        return answer(out, [&](World& w) { return w.displays[pid]; });
    }
    Status getTopActivityOnPrimaryDisplay(android::String16* out) override {
        calls.add("top");
        return answer(out, [](World& w) { return w.topActivity; });
    }

private:
    template <typename Result, typename Query>
    Status answer(Result* out, Query query) {
        return world.access([&](World& w) {
            *out = query(w);
            return w.status;
        });
    }
    void run(Hook World::*hook) {
        const Hook function = world.access([&](World& w) { return w.*hook; });
        if (function) function();
    }
    static std::string text(int pid, int uid) {
        return std::to_string(uid) + "/" + std::to_string(pid);
    }
};

class FakeDisplayManager : public MortalService<android::hardware::display::BnDisplayManager> {
    using Callback = android::sp<android::hardware::display::IDisplayManagerCallback>;

public:
    struct World {
        /** The event masks that were registered, in order. */
        std::vector<int64_t> masks;
        Callback callback;
        android::binder::Status status;
        Hook onRegister;
    };

    ValueMutexBase<World> world;

    std::vector<int64_t> masks() {
        return world.access([](World& w) { return w.masks; });
    }
    /** The callback of the last registration; null when there was none. */
    Callback callback() {
        return world.access([](World& w) { return w.callback; });
    }

    android::binder::Status registerCallbackWithEventMask(const Callback& callback,
                                                          int64_t eventMask) override {
        const Hook hook = world.access([](World& w) { return w.onRegister; });
        if (hook) hook();
        return world.access([&](World& w) {
            w.masks.push_back(eventMask);
            w.callback = callback;
            return w.status;
        });
    }
};

/** "top com.app", "immersive (none)" for an absent package, "top " for an empty one. */
class FakeFocusHelper : public MortalService<velmar::internal::BnVrFocusHelper> {
    using Status = android::binder::Status;
    using Package = std::unique_ptr<android::String16>;

public:
    CallLog calls;
    /** Run by each notice of a top activity. */
    Hook onCalled = [] {};

    Status onFocusChanged(int32_t focusType) override {
        calls.add("focus " + std::to_string(focusType));
        return Status::ok();
    }
    Status onTopActivityChanged(const Package& packageName) override {
        calls.add("top " + text(packageName));
        onCalled();
        return Status::ok();
    }
    Status onImmersiveAppChanged(const Package& packageName) override {
        calls.add("immersive " + text(packageName));
        return Status::ok();
    }

private:
    static std::string text(const Package& name) {
        return name == nullptr ? "(none)" : android::String8(*name).c_str();
    }
};

/** "packages 10050", "permission NAME 10050/4321". */
class FakePermissionController : public MortalService<android::BnPermissionController> {
    using String16 = android::String16;

public:
    struct World {
        /** (permission, uid). */
        std::set<std::pair<std::string, int>> grants;
        /** By uid. */
        std::map<int, std::vector<std::string>> packages;
        /** Run by each such question, with the uid. */
        std::function<void(int)> onPackages, onPermission;
    };

    ValueMutexBase<World> world;
    CallLog calls;

    void grant(const std::string& permission, int uid) {
        world.access([&](World& w) { w.grants.insert({permission, uid}); });
    }
    void install(int uid, const std::vector<std::string>& packages) {
        world.access([&](World& w) { w.packages[uid] = packages; });
    }

    bool checkPermission(const String16& permission, int32_t pid, int32_t uid) override {
        const std::string name = android::String8(permission).c_str();
        calls.add("permission " + name + " " + std::to_string(uid) + "/" + std::to_string(pid));
        const auto hook = world.access([](World& w) { return w.onPermission; });
        if (hook) hook(uid);
        return world.access([&](World& w) { return w.grants.contains({name, uid}); });
    }
    void getPackagesForUid(const uid_t id, android::Vector<String16>& packages) override {
        const int uid = static_cast<int>(id);
        calls.add("packages " + std::to_string(uid));
        const auto hook = world.access([](World& w) { return w.onPackages; });
        if (hook) hook(uid);
        world.access([&](World& w) {
            for (const std::string& package : w.packages[uid])
                packages.push_back(String16(package.data(), package.size()));
        });
    }
    int32_t noteOp(const String16&, int32_t, const String16&) override { return 0; }
    bool isRuntimePermission(const String16&) override { return false; }
    int getPackageUid(const String16&, int) override { return -1; }
};

class FakeWindowManager : public MortalService<velmar::internal::BnVelmarWindowManager> {
    using Status = android::binder::Status;
    using Observer = android::sp<velmar::internal::IWindowLayoutObserver>;
    using Keys = android::sp<velmar::internal::ISystemKeyEventHandler>;

public:
    ValueMutexBase<std::vector<Observer>> observers;

    /** The observer of the newest registration. */
    Observer observer() {
        return observers.access([](std::vector<Observer>& all) { return all.back(); });
    }
    size_t registrations() {
        return observers.access([](std::vector<Observer>& all) { return all.size(); });
    }

    Status registerWindowLayoutObserver(const Observer& observer, bool* out) override {
        observers.access([&](std::vector<Observer>& all) { all.push_back(observer); });
        *out = true;
        return Status::ok();
    }
    Status unregisterWindowLayoutObserver(const Observer&) override { return Status::ok(); }
    Status registerSystemKeyEventHandler(const Keys&, bool*) override { return Status::ok(); }
    Status unregisterSystemKeyEventHandler(const Keys&, bool*) override { return Status::ok(); }
};

}  // namespace NQS::OS
