// SPDX-License-Identifier: Apache-2.0
//
// Fake permission controller: made-up grants and packages, and a log of what was asked.
//
// Calls are logged in order, as text: "packages 10050", "permission NAME 10050/4321". Any thread.
#pragma once

#include <binder/IPermissionController.h>
#include <utils/String8.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "CallLog.h"
#include "MortalService.h"
#include "ValueMutex.h"

namespace NQS::OS {

class FakePermissionController : public MortalService<android::BnPermissionController> {
public:
    struct World {
        /** (permission, uid). */
        std::set<std::pair<std::string, int>> grants;
        /** By uid. */
        std::map<int, std::vector<std::string>> packages;
        /** Run by each question about packages, with the uid and no lock held. */
        std::function<void(int)> onPackages;
        /** Run by each question for a permission, likewise. */
        std::function<void(int)> onPermission;
    };

    ValueMutexBase<World> world;
    CallLog calls;

    void grant(const std::string& permission, int uid) {
        world.access([&](World& w) { w.grants.insert({permission, uid}); });
    }
    void install(int uid, const std::vector<std::string>& packages) {
        world.access([&](World& w) { w.packages[uid] = packages; });
    }

    bool checkPermission(const android::String16& permission, int32_t pid, int32_t uid) override {
        const std::string name = android::String8(permission).c_str();
        calls.add("permission " + name + " " + std::to_string(uid) + "/" + std::to_string(pid));
        const auto hook = world.access([](World& w) { return w.onPermission; });
        if (hook) hook(uid);
        return world.access([&](World& w) { return w.grants.count({name, uid}) != 0; });
    }
    void getPackagesForUid(const uid_t uid, android::Vector<android::String16>& packages) override {
        calls.add("packages " + std::to_string(static_cast<int>(uid)));
        const auto hook = world.access([](World& w) { return w.onPackages; });
        if (hook) hook(static_cast<int>(uid));
        world.access([&](World& w) {
            for (const std::string& package : w.packages[static_cast<int>(uid)]) {
                packages.push_back(android::String16(package.data(), package.size()));
            }
        });
    }
    int32_t noteOp(const android::String16& /*op*/, int32_t /*uid*/,
                   const android::String16& /*packageName*/) override {
        return 0;
    }
    bool isRuntimePermission(const android::String16& /*permission*/) override { return false; }
    int getPackageUid(const android::String16& /*package*/, int /*flags*/) override { return -1; }
};

}  // namespace NQS::OS
