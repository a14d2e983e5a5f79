// SPDX-License-Identifier: Apache-2.0
//
// Fake platform: the six services that the tracker looks for, made up and all of them up.
//
// One at a time per program: processes, properties, the log and the service manager are global, and
// found empty.
#pragma once

#include <binder/Binder.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <string>

#include "FakeServiceManager.h"
#include "FakeServices.h"
#include "FakeSystem.h"

namespace NQS::OS {

inline std::string text(const android::String16& value) {
    return android::String8(value).c_str();
}

struct FakePlatform {
    FakePlatform() {
        processes.clear();
        FakeProperties::instance().clear();
        fakeLog().take();
        names.add("activity", activity);
        names.add("display", display);
        names.add("package_native", new android::BBinder);
        names.add("permission", permission);
        names.add("VelmarWindowManager", window);
        names.add("vrfocushelper", helper);
    }
    ~FakePlatform() {
        names.clear();
        processes.clear();
    }

    FakeServiceManager& names = FakeServiceManager::installed();
    FakeProcessTable& processes = FakeProcessTable::instance();
    const android::sp<FakeActivityManager> activity = new FakeActivityManager;
    const android::sp<FakeDisplayManager> display = new FakeDisplayManager;
    const android::sp<FakePermissionController> permission = new FakePermissionController;
    const android::sp<FakeWindowManager> window = new FakeWindowManager;
    const android::sp<FakeFocusHelper> helper = new FakeFocusHelper;
};

}  // namespace NQS::OS
