// SPDX-License-Identifier: Apache-2.0
//
// Service world: the focus service over fakes, and callers of any identity, in one process.
//
// Permissions are remembered per uid for the life of the program: a test takes fresh uids.
#pragma once

#include <binder/IPCThreadState.h>
#include <binder/Status.h>

#include <memory>

#include "CallLog.h"
#include "FakeConnectionManager.h"
#include "FakeFocusPolicy.h"
#include "FakePlatform.h"
#include "VrFocusService.h"

namespace NQS::OS {

constexpr char kReadFocus[] = "com.velmar.permission.READ_FOCUS_STATE";
constexpr char kGrantAccess[] = "com.velmar.permission.GRANT_TRACKING_SERVICE_ACCESS_TO_DISPLAY";
constexpr char kDumpPermission[] = "android.permission.DUMP";

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

class ServiceWorld : public FakePlatform {
public:
    /** A uid that no test has used yet, with the permissions given. */
    template <typename... Permissions>
    int user(const Permissions&... held) {
        const int uid = freshUid();
        (permission->grant(held, uid), ...);
        return uid;
    }

    /** What the policy answers from now on: the app is the top activity as well. */
    void chooseApp(const char* package, int pid, int uid) {
        ImmersiveApp& app = policy->immersiveApp.emplace();
        app.packageName = android::String16(package);
        app.pid = pid;
        app.uid = uid;
        app.isTopActivity = true;
    }

    static int freshUid() {
        static int sLast = 20000;
        return ++sLast;
    }

    const std::shared_ptr<CallLog> log = std::make_shared<CallLog>();
    const std::shared_ptr<FakeConnectionManager> tracker =
            std::make_shared<FakeConnectionManager>(log);
    const std::shared_ptr<FakeFocusPolicy> policy = std::make_shared<FakeFocusPolicy>(log);
    android::sp<VrFocusService> service = new VrFocusService(tracker, policy);
};

}  // namespace NQS::OS
