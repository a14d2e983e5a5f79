// SPDX-License-Identifier: Apache-2.0
//
// Service world: the focus service over fakes, and callers of any identity, in one process.
//
// Permissions are remembered per uid for the life of the program: a test takes fresh uids.
#pragma once

#include <binder/IPCThreadState.h>
#include <binder/Status.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <memory>
#include <string>

#include "CallLog.h"
#include "FakeActivityManager.h"
#include "FakeConnectionManager.h"
#include "FakeFocusHelper.h"
#include "FakeFocusPolicy.h"
#include "FakeLog.h"
#include "FakePermissionController.h"
#include "FakeProcess.h"
#include "FakeServiceManager.h"
#include "FakeWindowManager.h"
#include "VrFocusService.h"

namespace NQS::OS {

constexpr char kReadFocus[] = "com.velmar.permission.READ_FOCUS_STATE";
constexpr char kGrantAccess[] = "com.velmar.permission.GRANT_TRACKING_SERVICE_ACCESS_TO_DISPLAY";
constexpr char kDumpPermission[] = "android.permission.DUMP";

inline std::string text(const android::String16& value) {
    return android::String8(value).c_str();
}

/** For its lifetime, calls on this thread come from the given process. */
class CallAs {
public:
    CallAs(int uid, int pid) : mToken(android::IPCThreadState::self()->clearCallingIdentity()) {
        const int64_t token = (static_cast<int64_t>(uid) << 32) | static_cast<uint32_t>(pid);
        android::IPCThreadState::self()->restoreCallingIdentity(token);
    }
    explicit CallAs(const FocusClient& client) : CallAs(client.uid, client.pid) {}
    ~CallAs() { android::IPCThreadState::self()->restoreCallingIdentity(mToken); }
    CallAs(const CallAs&) = delete;
    CallAs& operator=(const CallAs&) = delete;

private:
    const int64_t mToken;
};

class ServiceWorld {
public:
    ServiceWorld() {
        FakeProcessTable::instance().clear();
        FakeLog::instance().take();
        FakeServiceManager& services = FakeServiceManager::installed();
        services.add("activity", activities);
        services.add("permission", permissions);
        services.add("VelmarWindowManager", windows);
        services.add("vrfocushelper", helper);
        tracker = std::make_shared<FakeConnectionManager>(log);
        policy = std::make_shared<FakeFocusPolicy>(log);
        service = new VrFocusService(tracker, policy);
    }

    /** A uid that no test has used yet, with the permissions given. */
    template <typename... Permissions>
    int user(const Permissions&... held) {
        const int uid = freshUid();
        (permissions->grant(held, uid), ...);
        return uid;
    }

    static int freshUid() {
        static int sLast = 20000;
        return ++sLast;
    }

    const std::shared_ptr<CallLog> log = std::make_shared<CallLog>();
    const android::sp<FakeActivityManager> activities = new FakeActivityManager;
    const android::sp<FakePermissionController> permissions = new FakePermissionController;
    const android::sp<FakeWindowManager> windows = new FakeWindowManager;
    const android::sp<FakeFocusHelper> helper = new FakeFocusHelper;
    std::shared_ptr<FakeConnectionManager> tracker;
    std::shared_ptr<FakeFocusPolicy> policy;
    android::sp<VrFocusService> service;
};

}  // namespace NQS::OS
