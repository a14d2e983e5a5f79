// SPDX-License-Identifier: Apache-2.0
//
// Focus service: who may call what, which arguments pass, and in which order the work is done.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
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

    VrFocusServiceTest() { (void)FakeTelemetry::instance().take(); }

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
        SCOPED_TRACE(method.name);
        // With every permission but the one that counts.
        const bool reads = method.permission == std::string(kReadFocus);
        const CallAs caller(mWorld.user(reads ? kGrantAccess : kReadFocus, kDumpPermission), kPid);
        mStatuses.resize(3);
        mApp.pid = 77;
        mTop = String16("before");
        mApps = {String16("before")};
        const Status status = method.call();
        EXPECT_EQ(status.exceptionCode(), Status::EX_SECURITY);
        EXPECT_TRUE(status.exceptionMessage().isEmpty());
        EXPECT_EQ(mWorld.log->take(), Calls());
        EXPECT_EQ(mStatuses.size(), 3u);
        EXPECT_EQ(mApp.pid, 77);
        EXPECT_EQ(text(mTop), "before");
        EXPECT_EQ(mApps.size(), 1u);
    }
}

TEST_F(VrFocusServiceTest, ThePermissionThatTheMethodNamesOrTheAudioServersUidIsEnough) {
    mWorld.policy->immersiveApp.emplace();
    // The same application id of another user, its neighbour, the system, root, nobody.
    for (const int uid : {101041, 1040, 1000, 0, mWorld.user()}) {
        const CallAs caller(uid, kPid);
        for (const Method& method : methods())
            EXPECT_FALSE(method.call().isOk()) << uid << " " << method.name;
    }
    for (const Method& method : methods()) {
        for (const int uid : {1041, mWorld.user(method.permission)}) {
            const CallAs caller(uid, kPid);
            EXPECT_TRUE(method.call().isOk()) << uid << " " << method.name;
            EXPECT_NE(mWorld.log->take(), Calls()) << method.name;
        }
    }
}

TEST_F(VrFocusServiceTest, PidsArePassedOnAsTheyAreAndTheAnswerReplacesTheResult) {
    const CallAs caller(mWorld.user(kReadFocus), kPid);
    mWorld.policy->statuses.resize(2);
    mWorld.policy->statuses[0].pid = 9;
    mWorld.policy->statuses[1].hasFocus = true;
    mStatuses.resize(5);
    ASSERT_TRUE(mWorld.service->getClientFocusStatus(1, {8, -5, 8, 0}, &mStatuses).isOk());
    EXPECT_EQ(mWorld.log->take(), (Calls{"compute 1 8 -5 8 0 into 0"}));
    ASSERT_EQ(mStatuses.size(), 2u);
    EXPECT_EQ(mStatuses[0].pid, 9);
    EXPECT_FALSE(mStatuses[0].hasFocus);
    EXPECT_TRUE(mStatuses[1].hasFocus);
}

TEST_F(VrFocusServiceTest, FocusTypesOutOfRangeAreRefusedAfterThePermission) {
    const int reader = mWorld.user(kReadFocus), stranger = mWorld.user();
    for (const int type : {2, -1, 256, INT32_MAX, INT32_MIN}) {
        for (const int uid : {reader, stranger}) {
            const CallAs caller(uid, kPid);
            EXPECT_EQ(mWorld.service->getClientFocusStatus(type, {}, &mStatuses).exceptionCode(),
                      uid == reader ? Status::EX_ILLEGAL_ARGUMENT : Status::EX_SECURITY)
                    << type;
        }
    }
    EXPECT_EQ(mWorld.log->take(), Calls());
}

TEST_F(VrFocusServiceTest, TheImmersiveAppIsCopiedOrTheAnswerIsNullPointer) {
    const CallAs caller(mWorld.user(kReadFocus), kPid);
    mApp.pid = 77;
    EXPECT_EQ(mWorld.service->getImmersiveApp(&mApp).exceptionCode(), Status::EX_NULL_POINTER);
    EXPECT_EQ(mApp.pid, 77);
    mWorld.chooseApp("com.game", /*pid=*/5, /*uid=*/6);
    EXPECT_TRUE(mWorld.service->getImmersiveApp(&mApp).isOk());
    EXPECT_EQ(text(mApp.packageName), "com.game");
    EXPECT_EQ((FocusClient{mApp.uid, mApp.pid}), (FocusClient{6, 5}));
    EXPECT_TRUE(mApp.isTopActivity);
}

TEST_F(VrFocusServiceTest, ForegroundAppsAreTheNamesOfWhatRendersInItsOrder) {
    const CallAs caller(mWorld.user(kReadFocus), kPid);
    mWorld.processes.set(12, 10001, "com.game:vr");
    mWorld.processes.set(11, 10002, "com.m\xc3\xa4il");
    mWorld.tracker->rendering = {{10001, 12}, {10003, 99}, {10002, 11}, {10001, 12}};
    mApps = {String16("before")};
    ASSERT_TRUE(mWorld.service->getForegroundApps(&mApps).isOk());
    const String16 game("com.game:vr");
    EXPECT_EQ(mApps, (std::vector<String16>{game, String16(), String16(u"com.m\u00e4il"), game}));
    EXPECT_EQ(mWorld.processes.shortNames(), 0);
}

TEST_F(VrFocusServiceTest, TheMainDisplaysFocusIsSetBeforeTheTrackerIsTold) {
    const CallAs caller(mWorld.user(kGrantAccess), kPid);
    for (const int display : {0, 1, -1, INT32_MAX}) {
        const std::string id = std::to_string(display);
        EXPECT_TRUE(mWorld.service->grantTrackingServiceAccess(display).isOk());
        EXPECT_TRUE(mWorld.service->revokeTrackingServiceAccess(display).isOk());
        EXPECT_EQ(mWorld.log->take(), display == 0 ? (Calls{"mainDisplayFocus true", "grant 0",
                                                            "mainDisplayFocus false", "revoke 0"})
                                                   : (Calls{"grant " + id, "revoke " + id}));
    }
}

TEST_F(VrFocusServiceTest, AppStatesAreTakenFromTheProcessItselfAlone) {
    const int uid = mWorld.user(kReadFocus, kGrantAccess);
    mWorld.processes.set(kPid, uid, "com.game");
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
    mWorld.processes.set(game.pid, game.uid, "com.game");
    const auto rendering = [&] {
        return mWorld.tracker->ConnectionManager::getClientsCurrentlyRendering();
    };
    std::vector<std::vector<FocusClient>> whenAsked;
    mWorld.policy->onTopActivityAsked = [&] { whenAsked.push_back(rendering()); };
    // The transaction's uid is not looked at, nor any permission asked for: the process library
    // says who the pid is.
    const CallAs caller(4242, game.pid);
    mWorld.permission->calls.take();
    const struct {
        int state;
        bool notified, renders;
    } kRows[] = {{1, false, false}, {0, true, true},    {1, false, true}, {3, false, true},
                 {-1, false, true}, {256, false, true}, {2, true, false}, {2, true, false}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.state);
        const std::vector<FocusClient> expected(row.renders ? 1 : 0, game);
        EXPECT_TRUE(mWorld.service->setAppState(game.pid, row.state).isOk());
        EXPECT_EQ(mWorld.log->take(), row.notified
                                              ? (Calls{"topActivity", "immersiveApp", "topActivity",
                                                       "immersiveApp", "topActivity"})
                                              : Calls());
        EXPECT_EQ(FakeTelemetry::instance().take().size(), row.notified ? 1u : 0u);
        EXPECT_EQ(rendering(), expected);
        // For the listeners, for the helper and for the report: known before anyone is told.
        EXPECT_EQ(std::exchange(whenAsked, {}),
                  decltype(whenAsked)(row.notified ? 3 : 0, expected));
    }
    EXPECT_EQ(mWorld.permission->calls.take(), Calls());
}

TEST_F(VrFocusServiceTest, TheReportHoldsTheImmersiveAppAndTheTopActivity) {
    mWorld.processes.set(kPid, 10001, "com.game");
    mWorld.policy->topActivity = String16("com.top");
    mWorld.chooseApp("com.game", /*pid=*/7, /*uid=*/300);
    const CallAs caller(10001, kPid);
    for (const int32_t status : {0, -1}) {
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
