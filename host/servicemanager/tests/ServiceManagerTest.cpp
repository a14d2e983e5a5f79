// SPDX-License-Identifier: Apache-2.0
//
// Service manager, in process, with binders that die when told.
#include "../ServiceManager.h"

#include <binder/IServiceManager.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../Limits.h"
#include "Fakes.h"

namespace servicemanager {

using android::IBinder;
using android::sp;
using android::binder::Status;
using test::FakeAccess;
using test::FakeService;
using test::FakeWatcher;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

constexpr int32_t kCritical = android::IServiceManager::DUMP_FLAG_PRIORITY_CRITICAL;
constexpr int32_t kHigh = android::IServiceManager::DUMP_FLAG_PRIORITY_HIGH;
constexpr int32_t kDefault = android::IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT;
constexpr int32_t kAll = android::IServiceManager::DUMP_FLAG_PRIORITY_ALL;

class ServiceManagerTest : public testing::Test {
protected:
    int add(const std::string& name, const sp<IBinder>& service, int32_t priority = kDefault,
            bool allowIsolated = false) {
        return mManager->addService(name, service, allowIsolated, priority).exceptionCode();
    }
    sp<IBinder> check(const std::string& name) {
        // Something in the out-value, to see that absence is written too.
        sp<IBinder> checked = new FakeService;
        sp<IBinder> got = new FakeService;
        EXPECT_TRUE(mManager->checkService(name, &checked).isOk());
        EXPECT_TRUE(mManager->getService(name, &got).isOk());
        EXPECT_EQ(checked, got);
        return checked;
    }
    std::vector<std::string> list(int32_t mask = kAll) {
        std::vector<std::string> names = {"left over"};
        EXPECT_TRUE(mManager->listServices(mask, &names).isOk());
        return names;
    }
    int watch(const std::string& name, const sp<FakeWatcher>& watcher) {
        return mManager->registerForNotifications(name, watcher).exceptionCode();
    }
    int unwatch(const std::string& name, const sp<FakeWatcher>& watcher) {
        return mManager->unregisterForNotifications(name, watcher).exceptionCode();
    }

    Caller mCaller = {.debugPid = 77, .uid = 1000};
    const sp<ServiceManager> mManager =
            new ServiceManager(std::make_unique<FakeAccess>(/*ownUid=*/0, &mCaller));
    const sp<FakeService> mService = new FakeService;
};

}  // namespace

TEST_F(ServiceManagerTest, AddedServiceIsFoundUnderItsNameOnly) {
    EXPECT_EQ(add("foo", mService), 0);
    EXPECT_EQ(check("foo"), mService);
    EXPECT_EQ(check(""), nullptr);
    EXPECT_EQ(check("fo"), nullptr);
    EXPECT_EQ(check("Foo"), nullptr);
}

TEST_F(ServiceManagerTest, NamesAreOfLimitedLengthAndLetters) {
    const struct {
        std::string name;
        int result;
    } rows[] = {
            {"a", 0},
            {std::string(127, 'a'), 0},
            {"android.hardware.foo@1-0/de_fault", Status::EX_ILLEGAL_ARGUMENT},
            {"android.hardware.foo.IFoo/de_fa-ult9", 0},
            {"", Status::EX_ILLEGAL_ARGUMENT},
            {std::string(128, 'a'), Status::EX_ILLEGAL_ARGUMENT},
            {"a b", Status::EX_ILLEGAL_ARGUMENT},
            {"a$", Status::EX_ILLEGAL_ARGUMENT},
            {"a\n", Status::EX_ILLEGAL_ARGUMENT},
            {"\xc3\xa9", Status::EX_ILLEGAL_ARGUMENT},
            {std::string("a\0b", 3), Status::EX_ILLEGAL_ARGUMENT},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(add(row.name, mService), row.result) << row.name;
        EXPECT_EQ(check(row.name), row.result == 0 ? mService : nullptr) << row.name;
        EXPECT_EQ(watch(row.name, new FakeWatcher), row.result) << row.name;
    }
}

TEST_F(ServiceManagerTest, NullBinderIsRefused) {
    EXPECT_EQ(add("foo", nullptr), Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_THAT(list(), IsEmpty());
}

TEST_F(ServiceManagerTest, DeadBinderIsRefusedAndTheOldOneStays) {
    EXPECT_EQ(add("foo", mService), 0);
    const sp<FakeService> dead = new FakeService;
    dead->die();
    EXPECT_EQ(add("foo", dead), Status::EX_ILLEGAL_STATE);
    EXPECT_EQ(add("bar", dead), Status::EX_ILLEGAL_STATE);
    EXPECT_EQ(check("foo"), mService);
    EXPECT_THAT(list(), ElementsAre("foo"));
}

TEST_F(ServiceManagerTest, LastOneToAddANameHasIt) {
    const sp<FakeService> second = new FakeService;
    EXPECT_EQ(add("foo", mService), 0);
    EXPECT_EQ(add("foo", second), 0);
    EXPECT_EQ(add("foo", second), 0);
    EXPECT_EQ(check("foo"), second);
    EXPECT_EQ(mService->links(), 0u);
    EXPECT_EQ(second->links(), 1u);
    mService->die();
    EXPECT_EQ(check("foo"), second);
}

TEST_F(ServiceManagerTest, DeathTakesAllNamesOfTheDeadAndNoOthers) {
    const sp<FakeService> other = new FakeService;
    EXPECT_EQ(add("foo", mService), 0);
    EXPECT_EQ(add("bar", mService), 0);
    EXPECT_EQ(add("other", other), 0);
    mService->die();
    EXPECT_EQ(check("foo"), nullptr);
    EXPECT_EQ(check("bar"), nullptr);
    EXPECT_THAT(list(), ElementsAre("other"));
    EXPECT_EQ(add("foo", other), 0);
    EXPECT_EQ(check("foo"), other);
}

TEST_F(ServiceManagerTest, BinderOfItsOwnProcessNeedsNoWatching) {
    const sp<IBinder> local = new android::BBinder;
    EXPECT_EQ(add("manager", local), 0);
    EXPECT_EQ(check("manager"), local);
}

TEST_F(ServiceManagerTest, ListIsSortedAndMaskedByPriority) {
    EXPECT_EQ(add("c", mService, kCritical), 0);
    EXPECT_EQ(add("a", mService, kDefault), 0);
    EXPECT_EQ(add("b", mService, kHigh | kDefault), 0);
    EXPECT_EQ(add("never", mService, 0), 0);
    EXPECT_THAT(list(kAll), ElementsAre("a", "b", "c"));
    EXPECT_THAT(list(kDefault), ElementsAre("a", "b"));
    EXPECT_THAT(list(kHigh), ElementsAre("b"));
    EXPECT_THAT(list(0), IsEmpty());
    EXPECT_EQ(add("a", mService, kCritical), 0);
    EXPECT_THAT(list(kDefault), ElementsAre("b"));
}

TEST_F(ServiceManagerTest, AppsMayNotAddServices) {
    const struct {
        uid_t ownUid;
        uid_t callerUid;
        int result;
    } rows[] = {
            {0, 0, 0},
            {0, 1000, 0},
            {0, 9999, 0},
            {0, 10000, Status::EX_SECURITY},
            {0, 99999, Status::EX_SECURITY},
            {0, 101000, 0},
            {0, 110050, Status::EX_SECURITY},
            {1000, 1000, 0},
            {12345, 12345, 0},
            {12345, 12346, Status::EX_SECURITY},
    };
    for (const auto& row : rows) {
        Caller caller = {.debugPid = 77, .uid = row.callerUid};
        const sp<ServiceManager> manager(
                new ServiceManager(std::make_unique<FakeAccess>(row.ownUid, &caller)));
        const sp<FakeService> service = new FakeService;
        EXPECT_EQ(manager->addService("foo", service, false, kDefault).exceptionCode(), row.result)
                << row.callerUid << " at " << row.ownUid;
        // A refused caller's binder is not even looked at.
        EXPECT_EQ(service->links(), row.result == 0 ? 1u : 0u);
    }
}

TEST_F(ServiceManagerTest, IsolatedAppsFindWhatIsMeantForThem) {
    EXPECT_EQ(add("foo", mService), 0);
    EXPECT_EQ(add("bar", mService, kDefault, /*allowIsolated=*/true), 0);
    for (const uid_t uid : {90000u, 99999u, 199000u}) {
        mCaller.uid = uid;
        EXPECT_EQ(check("foo"), nullptr) << uid;
        EXPECT_EQ(check("bar"), mService) << uid;
    }
    mCaller.uid = 89999;
    EXPECT_EQ(check("foo"), mService);
}

TEST_F(ServiceManagerTest, WatcherIsToldAtOnceAndOfEveryAdding) {
    const sp<FakeWatcher> early = new FakeWatcher;
    const sp<FakeWatcher> late = new FakeWatcher;
    const sp<FakeService> second = new FakeService;
    EXPECT_EQ(watch("foo", early), 0);
    EXPECT_THAT(early->take(), IsEmpty());

    EXPECT_EQ(add("foo", mService), 0);
    EXPECT_EQ(add("bar", mService), 0);
    EXPECT_THAT(early->take(), ElementsAre(Pair("foo", mService)));

    EXPECT_EQ(watch("foo", late), 0);
    EXPECT_THAT(late->take(), ElementsAre(Pair("foo", mService)));
    EXPECT_THAT(early->take(), IsEmpty());

    mService->die();
    EXPECT_EQ(add("foo", second), 0);
    EXPECT_THAT(early->take(), ElementsAre(Pair("foo", second)));
    EXPECT_THAT(late->take(), ElementsAre(Pair("foo", second)));
}

TEST_F(ServiceManagerTest, WatcherThatLeftOrDiedIsToldNothing) {
    const sp<FakeWatcher> left = new FakeWatcher;
    const sp<FakeWatcher> died = new FakeWatcher;
    EXPECT_EQ(watch("foo", left), 0);
    EXPECT_EQ(watch("foo", died), 0);
    EXPECT_EQ(unwatch("foo", left), 0);
    died->die();
    EXPECT_EQ(add("foo", mService), 0);
    EXPECT_THAT(left->take(), IsEmpty());
    EXPECT_THAT(died->take(), IsEmpty());
    EXPECT_EQ(left->links(), 0u);
    EXPECT_EQ(unwatch("foo", died), Status::EX_ILLEGAL_STATE);
    EXPECT_EQ(watch("foo", died), Status::EX_ILLEGAL_STATE);
}

TEST_F(ServiceManagerTest, WatcherOfTwoNamesLeavesOneOfThem) {
    const sp<FakeWatcher> watcher = new FakeWatcher;
    EXPECT_EQ(watch("foo", watcher), 0);
    EXPECT_EQ(watch("bar", watcher), 0);
    EXPECT_EQ(unwatch("foo", watcher), 0);
    EXPECT_EQ(unwatch("foo", watcher), Status::EX_ILLEGAL_STATE);
    EXPECT_EQ(add("foo", mService), 0);
    EXPECT_EQ(add("bar", mService), 0);
    EXPECT_THAT(watcher->take(), ElementsAre(Pair("bar", mService)));
    EXPECT_EQ(watcher->links(), 1u);
}

TEST_F(ServiceManagerTest, NullWatcherIsRefused) {
    EXPECT_EQ(watch("foo", nullptr), Status::EX_NULL_POINTER);
    EXPECT_EQ(unwatch("foo", nullptr), Status::EX_ILLEGAL_STATE);
}

TEST_F(ServiceManagerTest, TablesAreBounded) {
    for (size_t i = 0; i < kMaxServices; ++i) {
        ASSERT_EQ(add("n" + std::to_string(i), mService), 0);
    }
    EXPECT_EQ(add("one.more", mService), Status::EX_ILLEGAL_STATE);
    EXPECT_EQ(add("n7", mService), 0);
    EXPECT_EQ(mService->links(), kMaxServices);

    const sp<FakeWatcher> watcher = new FakeWatcher;
    for (size_t i = 0; i < kMaxCallbacks; ++i) {
        ASSERT_EQ(watch("w" + std::to_string(i % 10), watcher), 0);
    }
    EXPECT_EQ(watch("one.more", watcher), Status::EX_ILLEGAL_STATE);
    EXPECT_EQ(unwatch("w3", watcher), 0);
    EXPECT_EQ(watch("one.more", watcher), 0);
    watcher->die();
    EXPECT_EQ(watch("one.more", new FakeWatcher), 0);
}

TEST_F(ServiceManagerTest, DebugInfoNamesWhoRegistered) {
    EXPECT_EQ(add("b", mService), 0);
    mCaller.debugPid = 78;
    EXPECT_EQ(add("a", mService), 0);
    std::vector<android::os::ServiceDebugInfo> infos(3);
    ASSERT_TRUE(mManager->getServiceDebugInfo(&infos).isOk());
    ASSERT_EQ(infos.size(), 2u);
    EXPECT_EQ(infos[0].name, "a");
    EXPECT_EQ(infos[0].debugPid, 78);
    EXPECT_EQ(infos[1].name, "b");
    EXPECT_EQ(infos[1].debugPid, 77);
}

TEST_F(ServiceManagerTest, NothingIsDeclaredOrConnectedElsewhere) {
    bool declared = true;
    EXPECT_TRUE(mManager->isDeclared("foo", &declared).isOk());
    EXPECT_FALSE(declared);
    std::vector<std::string> instances = {"left over"};
    EXPECT_TRUE(mManager->getDeclaredInstances("foo", &instances).isOk());
    EXPECT_THAT(instances, IsEmpty());
    auto apex = std::make_unique<std::string>("left over");
    EXPECT_TRUE(mManager->updatableViaApex("foo", &apex).isOk());
    EXPECT_EQ(apex, nullptr);
    auto connection = std::make_unique<android::os::ConnectionInfo>();
    EXPECT_TRUE(mManager->getConnectionInfo("foo", &connection).isOk());
    EXPECT_EQ(connection, nullptr);
}

TEST_F(ServiceManagerTest, ServicesThatComeAndGoAreNotSupported) {
    EXPECT_EQ(add("foo", mService), 0);
    EXPECT_EQ(mManager->registerClientCallback("foo", mService, nullptr).exceptionCode(),
              Status::EX_UNSUPPORTED_OPERATION);
    EXPECT_EQ(mManager->tryUnregisterService("foo", mService).exceptionCode(),
              Status::EX_UNSUPPORTED_OPERATION);
    EXPECT_EQ(check("foo"), mService);
}

}  // namespace servicemanager
