// SPDX-License-Identifier: Apache-2.0
//
// Focus service: who may call what, which arguments pass, and in which order the work is done.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "FakeTelemetry.h"
#include "ServiceWorld.h"

namespace NQS::OS {
namespace {

using android::String16;
using android::binder::Status;
using com::velmar::os::statsdstructuredlogger::FakeTelemetry;
using Calls = std::vector<std::string>;

/** Of no real process: above what the kernel gives out. */
constexpr int kPid = 5'000'001;

class VrFocusServiceTest : public ::testing::Test {
protected:
    struct Method {
        const char* name;
        const char* permission;
        std::function<Status()> call;
    };

    /** Every method that names a permission, called with good arguments. */
    std::vector<Method> methods() {
        VrFocusService& service = *mWorld.service;
        return {
                {"getClientFocusStatus", kReadFocus,
                 [&] { return service.getClientFocusStatus(0, {1}, &mStatuses); }},
                {"getImmersiveApp", kReadFocus, [&] { return service.getImmersiveApp(&mApp); }},
                {"getTopActivity", kReadFocus, [&] { return service.getTopActivity(&mTop); }},
                {"getForegroundApps", kReadFocus,
                 [&] { return service.getForegroundApps(&mApps); }},
                {"grantTrackingServiceAccess", kGrantAccess,
                 [&] { return service.grantTrackingServiceAccess(0); }},
                {"revokeTrackingServiceAccess", kGrantAccess,
                 [&] { return service.revokeTrackingServiceAccess(0); }},
        };
    }

    ServiceWorld mWorld;
    std::vector<ClientStatus> mStatuses;
    ImmersiveApp mApp;
    String16 mTop;
    std::vector<String16> mApps;
};

TEST_F(VrFocusServiceTest, ARefusedCallReachesNothingAndLeavesResultsAlone) {
    for (const Method& method : methods()) {
        // With every permission but the one that counts.
        const bool reads = method.permission == std::string(kReadFocus);
        const int uid = mWorld.user(reads ? kGrantAccess : kReadFocus, kDumpPermission);
        const CallAs caller(uid, kPid);
        mStatuses.resize(3);
        mApp.pid = 77;
        mTop = String16("before");
        mApps = {String16("before")};
        const Status status = method.call();
        EXPECT_EQ(status.exceptionCode(), Status::EX_SECURITY) << method.name;
        EXPECT_TRUE(status.exceptionMessage().isEmpty()) << method.name;
        EXPECT_EQ(mWorld.log->take(), Calls()) << method.name;
        EXPECT_EQ(mStatuses.size(), 3u);
        EXPECT_EQ(mApp.pid, 77);
        EXPECT_EQ(text(mTop), "before");
        EXPECT_EQ(mApps.size(), 1u);
    }
}

TEST_F(VrFocusServiceTest, ThePermissionThatTheMethodNamesIsEnough) {
    mWorld.policy->immersiveApp.emplace();
    for (const Method& method : methods()) {
        const int uid = mWorld.user(method.permission);
        const CallAs caller(uid, kPid);
        EXPECT_TRUE(method.call().isOk()) << method.name;
        EXPECT_NE(mWorld.log->take(), Calls()) << method.name;
    }
}

TEST_F(VrFocusServiceTest, OnlyTheTrustedUidPassesWithoutBeingAskedAbout) {
    const struct {
        int uid;
        bool granted, asked;
    } kRows[] = {
            {1041, true, false},    // the audio server
            {101041, false, true},  // the same application id of another user
            {1040, false, true},   {1000, false, true}, {0, false, true},  // root
    };
    static std::map<int, size_t> sAsked;
    mWorld.policy->immersiveApp.emplace();
    for (const auto& row : kRows) {
        mWorld.permission->calls.take();
        const CallAs caller(row.uid, kPid);
        for (const Method& method : methods()) {
            EXPECT_EQ(method.call().isOk(), row.granted) << row.uid << " " << method.name;
        }
        // Once per permission: an answer is remembered for the life of the program, so the
        // questions are counted over all rounds of it.
        sAsked[row.uid] += mWorld.permission->calls.take().size();
        EXPECT_EQ(sAsked[row.uid], row.asked ? 2u : 0u) << row.uid;
    }
}

TEST_F(VrFocusServiceTest, ACallThatCarriesNoCallerIsRefused) {
    const CallAs caller(mWorld.user(), 0);
    EXPECT_EQ(mWorld.service->getTopActivity(&mTop).exceptionCode(), Status::EX_SECURITY);
}

TEST_F(VrFocusServiceTest, FocusTypesOutOfRangeAreRefusedAfterThePermission) {
    const struct {
        int type;
        int exception;
    } kRows[] = {
            {0, Status::EX_NONE},
            {1, Status::EX_NONE},
            {2, Status::EX_ILLEGAL_ARGUMENT},
            {-1, Status::EX_ILLEGAL_ARGUMENT},
            {256, Status::EX_ILLEGAL_ARGUMENT},
            {INT32_MAX, Status::EX_ILLEGAL_ARGUMENT},
            {INT32_MIN, Status::EX_ILLEGAL_ARGUMENT},
    };
    const int reader = mWorld.user(kReadFocus);
    const int stranger = mWorld.user();
    for (const auto& row : kRows) {
        mStatuses.assign(2, ClientStatus());
        mWorld.log->take();
        {
            const CallAs caller(reader, kPid);
            EXPECT_EQ(
                    mWorld.service->getClientFocusStatus(row.type, {}, &mStatuses).exceptionCode(),
                    row.exception)
                    << row.type;
        }
        const bool passed = row.exception == Status::EX_NONE;
        EXPECT_EQ(mStatuses.size(), passed ? 0u : 2u) << row.type;
        EXPECT_EQ(mWorld.log->take().size(), passed ? 1u : 0u) << row.type;
        const CallAs caller(stranger, kPid);
        EXPECT_EQ(mWorld.service->getClientFocusStatus(row.type, {}, &mStatuses).exceptionCode(),
                  Status::EX_SECURITY);
    }
}

TEST_F(VrFocusServiceTest, PidsArePassedOnAsTheyAreAndTheAnswerReplacesTheResult) {
    const CallAs caller(mWorld.user(kReadFocus), kPid);
    mWorld.policy->statuses.resize(2);
    mWorld.policy->statuses[0].pid = 9;
    mWorld.policy->statuses[1].pid = 8;
    mWorld.policy->statuses[1].hasFocus = true;
    mStatuses.resize(5);
    ASSERT_TRUE(mWorld.service->getClientFocusStatus(1, {8, -5, 8, 0}, &mStatuses).isOk());
    EXPECT_EQ(mWorld.log->take(), (Calls{"compute 1 8 -5 8 0 into 0"}));
    ASSERT_EQ(mStatuses.size(), 2u);
    EXPECT_EQ(mStatuses[0].pid, 9);
    EXPECT_FALSE(mStatuses[0].hasFocus);
    EXPECT_EQ(mStatuses[1].pid, 8);
    EXPECT_TRUE(mStatuses[1].hasFocus);
}

TEST_F(VrFocusServiceTest, TheImmersiveAppIsCopiedOrTheAnswerIsNullPointer) {
    const CallAs caller(mWorld.user(kReadFocus), kPid);
    mApp.pid = 77;
    EXPECT_EQ(mWorld.service->getImmersiveApp(&mApp).exceptionCode(), Status::EX_NULL_POINTER);
    EXPECT_EQ(mApp.pid, 77);
    mWorld.chooseApp("com.game", /*pid=*/5, /*uid=*/6);
    EXPECT_TRUE(mWorld.service->getImmersiveApp(&mApp).isOk());
    EXPECT_EQ(text(mApp.packageName), "com.game");
    EXPECT_EQ(mApp.pid, 5);
    EXPECT_EQ(mApp.uid, 6);
    EXPECT_TRUE(mApp.isTopActivity);
}

TEST_F(VrFocusServiceTest, ForegroundAppsAreTheNamesOfWhatRendersInItsOrder) {
    const CallAs caller(mWorld.user(kReadFocus), kPid);
    FakeProcessTable::instance().set(12, 10001, "com.game:vr");
    FakeProcessTable::instance().set(11, 10002, "com.m\xc3\xa4il");
    mWorld.tracker->rendering = {{10001, 12}, {10003, 99}, {10002, 11}, {10001, 12}};
    mApps = {String16("before")};
    ASSERT_TRUE(mWorld.service->getForegroundApps(&mApps).isOk());
    ASSERT_EQ(mApps.size(), 4u);
    EXPECT_EQ(text(mApps[0]), "com.game:vr");
    EXPECT_EQ(text(mApps[1]), "");
    EXPECT_EQ(mApps[2], String16(u"com.m\u00e4il"));
    EXPECT_EQ(text(mApps[3]), "com.game:vr");
    EXPECT_EQ(FakeProcessTable::instance().shortNames(), 0);
}

TEST_F(VrFocusServiceTest, TheMainDisplaysFocusIsSetBeforeTheTrackerIsTold) {
    const CallAs caller(mWorld.user(kGrantAccess), kPid);
    VrFocusService& service = *mWorld.service;
    const struct {
        std::function<Status()> call;
        Calls calls;
    } kRows[] = {
            {[&] { return service.grantTrackingServiceAccess(0); },
             {"mainDisplayFocus true", "grant 0"}},
            {[&] { return service.revokeTrackingServiceAccess(0); },
             {"mainDisplayFocus false", "revoke 0"}},
            {[&] { return service.grantTrackingServiceAccess(1); }, {"grant 1"}},
            {[&] { return service.revokeTrackingServiceAccess(1); }, {"revoke 1"}},
            {[&] { return service.grantTrackingServiceAccess(-1); }, {"grant -1"}},
            {[&] { return service.revokeTrackingServiceAccess(INT32_MAX); }, {"revoke 2147483647"}},
    };
    for (const auto& row : kRows) {
        EXPECT_TRUE(row.call().isOk());
        EXPECT_EQ(mWorld.log->take(), row.calls);
    }
}

TEST_F(VrFocusServiceTest, AppStatesAreTakenFromTheProcessItselfAlone) {
    const int uid = mWorld.user(kReadFocus, kGrantAccess);
    FakeProcessTable::instance().set(kPid, uid, "com.game");
    const struct {
        int caller, pid;
    } kRows[] = {{kPid, kPid + 1}, {kPid + 1, kPid}, {0, 0}, {0, kPid}, {kPid, 0}, {kPid, -kPid}};
    for (const auto& row : kRows) {
        const CallAs caller(uid, row.caller);
        const Status status = mWorld.service->setAppState(row.pid, 0);
        EXPECT_EQ(status.exceptionCode(), Status::EX_SECURITY) << row.caller << " " << row.pid;
        EXPECT_TRUE(status.exceptionMessage().isEmpty());
    }
    EXPECT_EQ(mWorld.log->take(), Calls());
    EXPECT_TRUE(mWorld.tracker->ConnectionManager::getClientsCurrentlyRendering().empty());
}

TEST_F(VrFocusServiceTest, VisibleAndStoppingUpdateNotifyAndReportOthersDoNothing) {
    const FocusClient game{mWorld.user(), kPid};
    const std::vector<FocusClient> none, rendering = {game};
    FakeProcessTable::instance().set(game.pid, game.uid, "com.game");
    // The transaction's uid is not looked at: the process library says who the pid is.
    const CallAs caller(4242, game.pid);
    const struct {
        int state;
        bool notified, renders;
    } kRows[] = {{1, false, false}, {0, true, true},    {1, false, true}, {3, false, true},
                 {-1, false, true}, {256, false, true}, {2, true, false}, {2, true, false}};
    for (const auto& row : kRows) {
        mWorld.log->take();
        (void)FakeTelemetry::instance().take();
        EXPECT_TRUE(mWorld.service->setAppState(game.pid, row.state).isOk()) << row.state;
        EXPECT_EQ(mWorld.log->take(), row.notified
                                              ? (Calls{"topActivity", "immersiveApp", "topActivity",
                                                       "immersiveApp", "topActivity"})
                                              : Calls())
                << row.state;
        EXPECT_EQ(FakeTelemetry::instance().take().size(), row.notified ? 1u : 0u) << row.state;
        EXPECT_EQ(mWorld.tracker->ConnectionManager::getClientsCurrentlyRendering(),
                  row.renders ? rendering : none)
                << row.state;
    }
}

TEST_F(VrFocusServiceTest, TheTrackerKnowsTheNewStateBeforeAnyoneIsTold) {
    const FocusClient game{mWorld.user(), kPid};
    FakeProcessTable::instance().set(game.pid, game.uid, "com.game");
    std::vector<size_t> rendering;
    mWorld.policy->onTopActivityAsked = [&] {
        rendering.push_back(
                mWorld.tracker->ConnectionManager::getClientsCurrentlyRendering().size());
    };
    const CallAs caller(game);
    mWorld.service->setAppState(game.pid, 0);
    mWorld.service->setAppState(game.pid, 2);
    // Asked for the listeners, for the helper and for the report.
    EXPECT_EQ(rendering, (std::vector<size_t>{1, 1, 1, 0, 0, 0}));
}

TEST_F(VrFocusServiceTest, TheReportHoldsTheImmersiveAppAndTheTopActivity) {
    FakeProcessTable::instance().set(kPid, 10001, "com.game");
    mWorld.policy->topActivity = String16("com.top");
    mWorld.chooseApp("com.game", /*pid=*/7, /*uid=*/300);
    const CallAs caller(10001, kPid);
    for (const int32_t status : {0, -1}) {
        (void)FakeTelemetry::instance().take();
        FakeTelemetry::instance().setStatus(status);
        // A report that is refused is nobody's failure.
        EXPECT_TRUE(mWorld.service->setAppState(kPid, 0).isOk());
        const auto events = FakeTelemetry::instance().take();
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].id, 120828);
        EXPECT_EQ(events[0].bytes,
                  "\x0a\x14immersive_app_update\x12\x08"
                  "com.game\x18\x07\x20\xac\x02\x28\x01\x32\x07"
                  "com.top");
    }
    FakeTelemetry::instance().setStatus(0);
}

TEST_F(VrFocusServiceTest, NoPermissionIsNeededToReportOnesOwnState) {
    FakeProcessTable::instance().set(kPid, 10001, "com.game");
    mWorld.permission->calls.take();
    const CallAs caller(mWorld.user(), kPid);
    EXPECT_TRUE(mWorld.service->setAppState(kPid, 0).isOk());
    EXPECT_EQ(mWorld.permission->calls.take(), Calls());
}

TEST(VrFocusServiceDeathTest, ACallerWithoutAUidEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
            {
                ServiceWorld world;
                const CallAs caller(10001, kPid);
                world.service->setAppState(kPid, 1);
            },
            "setAppState: the calling process 5000001 has no uid");
}

}  // namespace
}  // namespace NQS::OS
