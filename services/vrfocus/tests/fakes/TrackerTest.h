// SPDX-License-Identifier: Apache-2.0
//
// Tracker fixture: a tracker among six made-up services.
//
// All services are up unless a test takes one away. Notices are sent through the observers that
// the tracker registered with them.
#pragma once

#include <binder/Binder.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "ConnectionManager.h"
#include "FakeActivityManager.h"
#include "FakeDisplayManager.h"
#include "FakeFocusHelper.h"
#include "FakeLog.h"
#include "FakePermissionController.h"
#include "FakeProcess.h"
#include "FakeServiceManager.h"
#include "FakeWindowManager.h"

namespace NQS::OS {

class TrackerTest : public testing::Test {
protected:
    TrackerTest() {
        processes.clear();
        log.take();
        names.add("activity", activity);
        names.add("display", display);
        names.add("package_native", new android::BBinder);
        names.add("permission", permission);
        names.add("VelmarWindowManager", window);
        names.add("vrfocushelper", helper);
    }
    ~TrackerTest() override {
        tracker.reset();
        names.clear();
        processes.clear();
    }

    std::shared_ptr<ConnectionManager> makeTracker() {
        tracker = std::make_shared<ConnectionManager>();
        return tracker;
    }

    /** The service dies and does not come back. */
    template <typename Service>
    void loseService(const std::string& name, Service& service) {
        names.remove(name);
        service.die();
    }

    /** A process that lives, with its name made up. */
    void start(const FocusClient& client) {
        processes.set(client.pid, client.uid, "process" + std::to_string(client.pid));
    }

    FakeServiceManager& names = FakeServiceManager::installed();
    FakeProcessTable& processes = FakeProcessTable::instance();
    FakeLog& log = FakeLog::instance();
    const android::sp<FakeActivityManager> activity = new FakeActivityManager;
    const android::sp<FakeDisplayManager> display = new FakeDisplayManager;
    const android::sp<FakePermissionController> permission = new FakePermissionController;
    const android::sp<FakeWindowManager> window = new FakeWindowManager;
    const android::sp<FakeFocusHelper> helper = new FakeFocusHelper;
    std::shared_ptr<ConnectionManager> tracker;
};

}  // namespace NQS::OS
