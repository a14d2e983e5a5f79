// SPDX-License-Identifier: Apache-2.0
//
// Service host in a process of its own, with a real service manager.
#include <android-base/unique_fd.h>
#include <android/os/BnServiceCallback.h>
#include <android/os/IServiceManager.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <future>

#include "Session.h"

namespace NQS::OS {

using android::IBinder;
using android::ProcessState;
using android::sp;
using android::String16;
using android::base::unique_fd;
using servicemanager::test::Program;
using servicemanager::test::Session;

namespace {

/** Fulfils a promise with the first service that it is told of. */
class Arrival : public android::os::BnServiceCallback {
public:
    android::binder::Status onRegistration(const std::string& /*name*/,
                                           const sp<IBinder>& binder) override {
        mService.set_value(binder);
        return android::binder::Status::ok();
    }
    sp<IBinder> wait() {
        auto service = mService.get_future();
        const bool came = service.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
        return came ? service.get() : nullptr;
    }

private:
    std::promise<sp<IBinder>> mService;
};

class Death : public IBinder::DeathRecipient {
public:
    void binderDied(const android::wp<IBinder>& /*who*/) override { mDied.set_value(); }
    bool wait() {
        return mDied.get_future().wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    }

private:
    std::promise<void> mDied;
};

}  // namespace

TEST(Hosting, ServiceServesUntilItIsKilledAndOutlivesClosedPipes) {
    const Session session(PROGRAMS);
    ProcessState::self()->startThreadPool();
    const auto manager = android::interface_cast<android::os::IServiceManager>(
            ProcessState::self()->getContextObject(nullptr));
    ASSERT_NE(manager, nullptr);
    const sp<Arrival> arrival = new Arrival;
    ASSERT_TRUE(manager->registerForNotifications("hosted", arrival).isOk());

    Program hosted({HOSTED_PROCESS});
    const sp<IBinder> service = arrival->wait();
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->pingBinder(), android::OK);
    EXPECT_TRUE(manager->unregisterForNotifications("hosted", arrival).isOk());

    unique_fd reading;
    unique_fd writing;
    ASSERT_TRUE(Pipe(&reading, &writing));
    reading.reset();
    EXPECT_EQ(service->dump(writing.get(), {}), android::UNKNOWN_ERROR);
    EXPECT_EQ(service->pingBinder(), android::OK);

    const sp<Death> death = new Death;
    EXPECT_EQ(service->linkToDeath(death), android::OK);
    hosted.kill();
    EXPECT_TRUE(death->wait());
    EXPECT_EQ(service->pingBinder(), android::DEAD_OBJECT);
    EXPECT_EQ(android::defaultServiceManager()->checkService(String16("hosted")), nullptr);
}

TEST(Hosting, MissingHubEndsTheProcessWithAMessage) {
    Program lost({"/usr/bin/env", "BINDER_DRIVER=/nonexistent/hub", HOSTED_PROCESS});
    EXPECT_EQ(lost.wait(), 1);
    EXPECT_NE(lost.messages().find("binderhub"), std::string::npos) << lost.messages();
}

}  // namespace NQS::OS
