// SPDX-License-Identifier: Apache-2.0
//
// Service manager as a process among others: deaths, notices, and many names.
#include "Session.h"

#include "TestDevice.h"

#include <android/os/BnServiceCallback.h>
#include <android/os/IServiceManager.h>
#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace servicemanager {

using android::IBinder;
using android::ProcessState;
using android::sp;
using android::String16;
using android::binder::Status;
using binderhost::tests::onDevice;
using test::Program;
using test::Session;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr uid_t kAppUid = 10050;

std::vector<std::string> serviceCommand(const std::string& name, uid_t uid) {
    return {SERVICE_PROCESS, name, std::to_string(uid)};
}

Program startService(const std::string& name) {
    return Program::ready(serviceCommand(name, geteuid()));
}

/** Counts what it is told, on the threads of the pool. */
class Watcher : public android::os::BnServiceCallback {
public:
    Status onRegistration(const std::string& name, const sp<IBinder>& binder) override {
        const std::lock_guard lock(mMutex);
        mLast = name;
        if (binder != nullptr) ++mCount;
        mChanged.notify_all();
        return Status::ok();
    }

    /** Waits until it was told so often. */
    bool isTold(int times) {
        std::unique_lock lock(mMutex);
        return mChanged.wait_for(lock, std::chrono::seconds(30), [&] { return mCount >= times; });
    }

    std::string last() {
        const std::lock_guard lock(mMutex);
        return mLast;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::string mLast;
    int mCount = 0;
};

/** One session for all tests: a process has one driver. Each test uses names of its own. */
class SessionTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        sSession = new Session(PROGRAMS);
        ProcessState::self()->startThreadPool();
    }
    static void TearDownTestSuite() {
        delete sSession;
        sSession = nullptr;
    }

    static sp<IBinder> check(const std::string& name) {
        return android::defaultServiceManager()->checkService(String16(name.c_str()));
    }
    static sp<android::os::IServiceManager> manager() {
        return android::interface_cast<android::os::IServiceManager>(
                ProcessState::self()->getContextObject(nullptr));
    }
    /**
     * Whether a name whose service has ended is free. A hub sees ends before all else; a kernel
     * tells of them some moments later, until when what is found is dead.
     */
    static bool isGone(const std::string& name) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (const sp<IBinder> found = check(name)) {
            EXPECT_EQ(found->pingBinder(), android::DEAD_OBJECT);
            if (!onDevice() || std::chrono::steady_clock::now() > deadline) return false;
        }
        return true;
    }
    static std::vector<std::string> list() {
        std::vector<std::string> names;
        EXPECT_TRUE(manager()
                            ->listServices(android::IServiceManager::DUMP_FLAG_PRIORITY_ALL, &names)
                            .isOk());
        return names;
    }

    static inline Session* sSession = nullptr;
};

}  // namespace

TEST_F(SessionTest, ServicesOfTwoProcessesAreFoundAndAnswer) {
    const Program one = startService("two.one");
    const Program two = startService("two.two");
    for (const auto& [name, pid] : {std::pair("two.one", one.pid()), {"two.two", two.pid()}}) {
        const sp<IBinder> service = check(name);
        ASSERT_NE(service, nullptr) << name;
        EXPECT_EQ(service->pingBinder(), android::OK);
        pid_t debugPid = 0;
        EXPECT_EQ(service->getDebugPid(&debugPid), android::OK);
        EXPECT_EQ(debugPid, pid);
    }
    EXPECT_THAT(list(), testing::IsSupersetOf({"manager", "two.one", "two.two"}));

    std::vector<android::os::ServiceDebugInfo> infos;
    ASSERT_TRUE(manager()->getServiceDebugInfo(&infos).isOk());
    EXPECT_TRUE(std::any_of(infos.begin(), infos.end(), [&](const auto& info) {
        return info.name == "two.one" && info.debugPid == one.pid();
    }));
}

TEST_F(SessionTest, DeadServiceIsNeverHandedOutAgain) {
    // Starting processes takes its time in an emulated machine.
    const int rounds = onDevice() ? 20 : 200;
    for (int round = 0; round < rounds; ++round) {
        Program victim = startService("victim");
        ASSERT_NE(check("victim"), nullptr) << round;
        victim.kill();
        ASSERT_TRUE(isGone("victim")) << round;
        ASSERT_EQ(check("victim"), nullptr) << round;
    }
}

TEST_F(SessionTest, LaterServiceOfANameTakesItAndKeepsItWhenTheEarlierDies) {
    Program early = startService("taken");
    const Program late = startService("taken");
    early.kill();
    const sp<IBinder> service = check("taken");
    ASSERT_NE(service, nullptr);
    pid_t pid = 0;
    EXPECT_EQ(service->getDebugPid(&pid), android::OK);
    EXPECT_EQ(pid, late.pid());
}

TEST_F(SessionTest, WatcherIsToldOfEachRegistration) {
    const sp<Watcher> watcher = new Watcher;
    ASSERT_TRUE(manager()->registerForNotifications("watched", watcher).isOk());
    {
        const Program first = startService("watched");
        EXPECT_TRUE(watcher->isTold(1));
        EXPECT_EQ(watcher->last(), "watched");
    }
    const Program second = startService("watched");
    EXPECT_TRUE(watcher->isTold(2));

    const sp<Watcher> late = new Watcher;
    ASSERT_TRUE(manager()->registerForNotifications("watched", late).isOk());
    EXPECT_TRUE(late->isTold(1));

    EXPECT_TRUE(manager()->unregisterForNotifications("watched", late).isOk());
    EXPECT_TRUE(manager()->unregisterForNotifications("watched", watcher).isOk());
    EXPECT_EQ(manager()->unregisterForNotifications("watched", watcher).exceptionCode(),
              Status::EX_ILLEGAL_STATE);
}

TEST_F(SessionTest, ThousandNamesAreKeptInOrder) {
    // Never destroyed: the service manager refers to them until this process has ended.
    static auto& services = *new std::vector<sp<IBinder>>;
    for (int i = 0; i < 1000; ++i) {
        const std::string name = "thousand." + std::to_string(i);
        services.push_back(new android::BBinder);
        ASSERT_EQ(android::defaultServiceManager()->addService(String16(name.c_str()),
                                                               services.back()),
                  android::OK);
    }
    for (int i = 0; i < 1000; ++i) {
        // A binder that comes home is the object itself.
        ASSERT_EQ(check("thousand." + std::to_string(i)), services[i]);
    }
    const std::vector<std::string> names = list();
    EXPECT_GE(names.size(), 1000u);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
}

TEST_F(SessionTest, AppMayNotAddAService) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can start an app under its own uid";
    auto command = serviceCommand("stolen", kAppUid);
    command.insert(command.end(), {"--ready-fd", "2"});
    Program refused(command);
    EXPECT_EQ(refused.wait(), 10 - Status::EX_SECURITY);
    EXPECT_EQ(check("stolen"), nullptr);

    const Program system = Program::ready(serviceCommand("system", /*uid=*/1000));
    EXPECT_NE(check("system"), nullptr);
}

TEST_F(SessionTest, SecondServiceManagerIsRefused) {
    Program second({PROGRAMS "/servicemanager"});
    EXPECT_EQ(second.wait(), 1);
    EXPECT_THAT(second.messages(), HasSubstr("another one is running"));
    EXPECT_NE(manager(), nullptr);
}

TEST_F(SessionTest, MissingHubIsAClearError) {
    SKIP_ON_DEVICE("there is no hub");
    const std::string path = sSession->driver() + ".none";
    Program lost({"/usr/bin/env", "BINDER_DRIVER=" + path, PROGRAMS "/servicemanager"});
    EXPECT_EQ(lost.wait(), 1);
    EXPECT_THAT(lost.messages(), testing::AllOf(HasSubstr(path), HasSubstr("binderhub")));
}

TEST_F(SessionTest, CommandLineIsChecked) {
    Program unknown({PROGRAMS "/servicemanager", "--unknown"});
    EXPECT_EQ(unknown.wait(), 2);
    EXPECT_THAT(unknown.messages(), HasSubstr("usage: servicemanager"));

    Program help({PROGRAMS "/servicemanager", "--help"});
    EXPECT_EQ(help.wait(), 0);
    EXPECT_THAT(help.messages(), StartsWith("usage: servicemanager"));
}

}  // namespace servicemanager
