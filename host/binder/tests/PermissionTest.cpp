// SPDX-License-Identifier: Apache-2.0
//
// Permission questions: who is asked, how often, and what is remembered.
#include <binder/IPCThreadState.h>
#include <binder/IPermissionController.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/PermissionCache.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <string>

namespace {

using namespace android;

class FakeController : public BnPermissionController {
public:
    int asked = 0;
    bool answer = true;
    String16 lastPermission;
    int32_t lastPid = 0;
    int32_t lastUid = 0;

    bool checkPermission(const String16& permission, int32_t pid, int32_t uid) override {
        asked++;
        lastPermission = permission;
        lastPid = pid;
        lastUid = uid;
        return answer;
    }
    int32_t noteOp(const String16& op, int32_t uid, const String16& packageName) override {
        return int32_t(op.size() + packageName.size()) + uid;
    }
    void getPackagesForUid(const uid_t uid, Vector<String16>& packages) override {
        for (uid_t i = 0; i < uid; i++)
            packages.add(String16(std::to_string(i).c_str()));
    }
    bool isRuntimePermission(const String16& permission) override {
        return permission == String16("runtime");
    }
    int getPackageUid(const String16& package, int flags) override {
        return int(package.size()) * flags;
    }
};

class FakeServiceManager : public IServiceManager {
public:
    std::map<String16, sp<IBinder>> services;
    int lookups = 0;

    sp<IBinder> checkService(const String16& name) const override {
        const_cast<FakeServiceManager*>(this)->lookups++;
        const auto found = services.find(name);
        return found == services.end() ? nullptr : found->second;
    }
    sp<IBinder> getService(const String16& /*name*/) const override {
        ADD_FAILURE() << "the lookup must not wait";
        return nullptr;
    }
    status_t addService(const String16&, const sp<IBinder>&, bool, int) override { return OK; }
    Vector<String16> listServices(int) override { return {}; }
    sp<IBinder> waitForService(const String16&) override { return nullptr; }
    bool isDeclared(const String16&) override { return false; }

protected:
    IBinder* onAsBinder() override { return nullptr; }
};

/** One service manager for the process; each test asks about permissions of its own. */
class PermissionTest : public testing::Test {
protected:
    static sp<FakeServiceManager> manager() {
        static const sp<FakeServiceManager> installed = [] {
            sp<FakeServiceManager> made = new FakeServiceManager();
            setDefaultServiceManager(made);
            return made;
        }();
        return installed;
    }

    void SetUp() override {
        manager()->services = {{String16("permission"), mController}};
        manager()->lookups = 0;
        mPermission = String16(testing::UnitTest::GetInstance()->current_test_info()->name());
    }

    bool check(pid_t pid, uid_t uid) {
        return PermissionCache::checkPermission(mPermission, pid, uid);
    }

    const sp<FakeController> mController = new FakeController();
    String16 mPermission;
};

TEST_F(PermissionTest, GrantIsAskedForOncePerUid) {
    EXPECT_TRUE(check(100, 1000));
    EXPECT_TRUE(check(101, 1000));
    EXPECT_EQ(mController->asked, 1);
    EXPECT_EQ(mController->lastPermission, mPermission);
    EXPECT_EQ(mController->lastPid, 100);
    EXPECT_EQ(mController->lastUid, 1000);
    EXPECT_TRUE(check(100, 1001));
    EXPECT_EQ(mController->asked, 2);
}

TEST_F(PermissionTest, DenialIsRememberedTooAndRootIsAskedAboutLikeAnyOther) {
    for (const uid_t uid : {1000, 0}) {
        mController->asked = 0;
        mController->answer = false;
        EXPECT_FALSE(check(100, uid));
        mController->answer = true;
        EXPECT_FALSE(check(100, uid));
        EXPECT_EQ(mController->asked, 1);
    }
}

TEST_F(PermissionTest, WithoutAControllerTheAnswerIsNoAndIsNotRemembered) {
    manager()->services.clear();
    EXPECT_FALSE(check(100, 1000));
    EXPECT_EQ(manager()->lookups, 1);
    manager()->services = {{String16("permission"), mController}};
    EXPECT_TRUE(check(100, 1000));
}

TEST_F(PermissionTest, AnswersOutliveTheController) {
    EXPECT_TRUE(check(100, 1000));
    manager()->services.clear();
    EXPECT_TRUE(check(100, 1000));
    EXPECT_FALSE(check(100, 1001));
}

TEST_F(PermissionTest, ControllerThatDoesNotAnswerHasNotDenied) {
    struct Dying : BBinder {
        status_t pingBinder() override { return DEAD_OBJECT; }
        status_t onTransact(uint32_t, const Parcel&, Parcel*, uint32_t) override {
            return FAILED_TRANSACTION;
        }
    };
    manager()->services = {{String16("permission"), new Dying()}};
    EXPECT_FALSE(check(100, 1000));
    manager()->services = {{String16("permission"), mController}};
    EXPECT_TRUE(check(100, 1000));
}

TEST_F(PermissionTest, ProcessItselfIsGrantedAndNoCallerIsRefused) {
    IPCThreadState* thread = IPCThreadState::self();
    const struct {
        const char* name;
        pid_t pid;
        bool granted;
        int asked;
    } rows[] = {
            {"itself", getpid(), true, 0}, {"no caller", 0, false, 0}, {"other", 4711, true, 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const int64_t mine = thread->clearCallingIdentity();
        thread->restoreCallingIdentity((int64_t{10099} << 32) | uint32_t(row.pid));
        int32_t pid = -1;
        int32_t uid = -1;
        EXPECT_EQ(PermissionCache::checkCallingPermission(mPermission, &pid, &uid), row.granted);
        thread->restoreCallingIdentity(mine);
        EXPECT_EQ(pid, row.pid);
        EXPECT_EQ(uid, 10099);
        EXPECT_EQ(mController->asked, row.asked);
    }
}

/** Makes the typed proxy speak to the stub through parcels, in this process. */
class Relay : public BBinder {
public:
    explicit Relay(const sp<IBinder>& target) : mTarget(target) {}

protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        return mTarget->transact(code, data, reply, flags);
    }

private:
    const sp<IBinder> mTarget;
};

TEST_F(PermissionTest, ProxyAndStubAgreeOnEveryCall) {
    const sp<IPermissionController> proxy =
            interface_cast<IPermissionController>(new Relay(mController));
    ASSERT_NE(proxy.get(), static_cast<IPermissionController*>(mController.get()));
    EXPECT_TRUE(proxy->checkPermission(String16("p"), 5, 6));
    EXPECT_EQ(mController->lastPid, 5);
    EXPECT_EQ(mController->lastUid, 6);
    mController->answer = false;
    EXPECT_FALSE(proxy->checkPermission(String16("p"), 5, 6));
    EXPECT_EQ(proxy->noteOp(String16("ab"), 10, String16("cde")), 15);
    Vector<String16> packages;
    proxy->getPackagesForUid(2, packages);
    ASSERT_EQ(packages.size(), 2u);
    EXPECT_EQ(packages[1], String16("1"));
    EXPECT_TRUE(proxy->isRuntimePermission(String16("runtime")));
    EXPECT_FALSE(proxy->isRuntimePermission(String16("other")));
    EXPECT_EQ(proxy->getPackageUid(String16("abc"), 7), 21);
}

TEST_F(PermissionTest, StubRefusesWhatIsNotForIt) {
    const sp<IBinder> stub = mController;
    for (uint32_t code = 1; code <= 5; code++) {
        SCOPED_TRACE(code);
        Parcel wrong;
        wrong.writeInterfaceToken(String16("android.os.IOther"));
        Parcel reply;
        EXPECT_EQ(stub->transact(code, wrong, &reply), PERMISSION_DENIED);
        Parcel cut;
        cut.writeInterfaceToken(IPermissionController::descriptor);
        EXPECT_NE(stub->transact(code, cut, &reply), OK);
    }
    Parcel data;
    Parcel reply;
    EXPECT_EQ(stub->transact(6, data, &reply), UNKNOWN_TRANSACTION);
    EXPECT_EQ(mController->asked, 0);
}

}  // namespace
