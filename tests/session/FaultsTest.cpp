// SPDX-License-Identifier: Apache-2.0
// Processes that are killed in the middle of a session: what is lost, what stays, what comes back.
#include <gmock/gmock.h>
#include <signal.h>

#include "HeadsetFixture.h"

namespace sim {
namespace {

using testing::HasSubstr;

class FaultsTest : public HeadsetFixture {};

/** Nothing of what a daemon was told outlives it; only what it can ask for is there again. */
TEST_F(FaultsTest, aRestartedDaemonKnowsOnlyWhatItIsToldAnew) {
    run([this] {
        startGame();
        mHeadset->startApp(kCoachPackage);
        mHeadset->expect(
                kShell,
                {{{kShell, kBoth}, {kGame, kBoth}, {kCoachPackage, kHeadOnly}}, kGame, kGame, ""});
        mHeadset->killDaemon();
        mHeadset->restartDaemon();
        // Background access is asked for again, the top activity too; the game has no focus until
        // somebody speaks of it.
        mHeadset->expect(
                kShell,
                {{{kShell, kBoth}, {kGame, kNoFocus}, {kCoachPackage, kHeadOnly}}, "", kGame, ""});
        mHeadset->reportWindowAgain();
        mHeadset->expect(
                kShell,
                {{{kShell, kBoth}, {kGame, kHeadOnly}, {kCoachPackage, kHeadOnly}}, "", kGame, ""});
        mHeadset->reportActivitiesAgain();
        mHeadset->expect(
                kShell,
                {{{kShell, kBoth}, {kGame, kBoth}, {kCoachPackage, kHeadOnly}}, "", kGame, ""});
        mHeadset->reportXrSession(kGame, Headset::kVisible);
        mHeadset->expect(
                kShell,
                {{{kShell, kBoth}, {kGame, kBoth}, {kCoachPackage, kHeadOnly}}, kGame, kGame, ""});
    });
}

TEST_F(FaultsTest, aRestartedDaemonHasForgottenGrantedDisplays) {
    run([this] {
        startGame();
        mHeadset->addDisplay(2);
        EXPECT_EQ(mHeadset->grantTracking(kShell, 2), 0);
        EXPECT_EQ(mHeadset->displayMask(), 2);
        mHeadset->killDaemon();
        mHeadset->restartDaemon();
        EXPECT_EQ(mHeadset->displayMask(), 0);
        mHeadset->startApp(kCoachPackage);
        mHeadset->showActivity(kCoachPackage, 2);
        mHeadset->expect(
                kShell,
                {{{kShell, kBoth}, {kGame, kNoFocus}, {kCoachPackage, kHeadOnly}}, "", kGame, ""});
    });
}

TEST_F(FaultsTest, noticesWhileTheDaemonIsAwayReachNobodyAndHarmNobody) {
    run([this] {
        mHeadset->killDaemon();
        mHeadset->restartService("activity");
        mEvents.clear();
        mHeadset->reportActivitiesAgain();
        EXPECT_THAT(mEvents, HasSubstr("is in the foreground (nobody asked to be told)"));
        mHeadset->restartDaemon();
        mHeadset->reportActivitiesAgain();
        mHeadset->expect(kShell, {{{kShell, kBoth}}, kShell, kShell, ""});
    });
}

TEST_F(FaultsTest, theWindowManagersDeathTakesTheWindowFocus) {
    run([this] {
        startGame();
        mHeadset->startApp(kCoachPackage);
        mHeadset->crashApp(kCoachPackage);
        mHeadset->install("com.quiet.app", 10070);
        mHeadset->startApp("com.quiet.app");
        mHeadset->focusWindow("com.quiet.app");
        Answers due{
                {{kShell, kBoth}, {kGame, kBoth}, {"com.quiet.app", kHeadOnly}}, kGame, kGame, ""};
        mHeadset->expect(kShell, due);
        mHeadset->killService("VelmarWindowManager");
        due.focus["com.quiet.app"] = kNoFocus;
        mHeadset->expect(kShell, due);
        mHeadset->restartService("VelmarWindowManager");
        mHeadset->reportWindowAgain();
        due.focus["com.quiet.app"] = kHeadOnly;
        mHeadset->expect(kShell, due);
    });
}

TEST_F(FaultsTest, whoIsMetWhileThePermissionServiceIsAwayStaysWithoutPermissions) {
    run([this] {
        startGame();
        mHeadset->killService("permission");
        mHeadset->startApp(kCoachPackage);
        Answers due{{{kShell, kBoth}, {kGame, kBoth}, {kCoachPackage, kNoFocus}}, kGame, kGame, ""};
        mHeadset->expect(kShell, due);
        mHeadset->restartService("permission");
        // A later effect shows that the daemon has found the service again.
        mHeadset->awaitTrue("a new process gets its permission", [&] {
            mHeadset->crashApp(kCoachPackage);
            mHeadset->startApp(kCoachPackage);
            return mHeadset->answersFor(kShell).focus[kCoachPackage].head;
        });
        due.focus[kCoachPackage] = kHeadOnly;
        mHeadset->expect(kShell, due);
    });
}

TEST_F(FaultsTest, everyServiceCanBeKilledAndComesBack) {
    run([this] {
        startGame();
        for (const std::string& name : Stack::serviceNames()) {
            mHeadset->killService(name);
            mHeadset->restartService(name);
        }
        mHeadset->reportActivitiesAgain();
        mHeadset->reportWindowAgain();
        mHeadset->expect(kShell, {{{kShell, kBoth}, {kGame, kBoth}}, kGame, kGame, ""});
    });
}

/** The call waits in the daemon, for a service that does not answer, when its caller is killed. */
TEST_F(FaultsTest, aClientKilledInMidCallHarmsNobody) {
    run([this] {
        startGame();
        mHeadset->install(kCoachPackage, 10062, {"com.velmar.permission.READ_FOCUS_STATE"});
        ChildProcess& permission = mHeadset->stack().service("permission").process();
        // More rounds than the daemon has threads: a call that is never given up would show.
        for (int round = 0; round < 20; ++round) {
            mHeadset->startApp(kCoachPackage);
            DrivenProcess& coach = mHeadset->app(kCoachPackage);
            ASSERT_EQ(mHeadset->ask(kCoachPackage, operation("getTopActivity"))["exception"], 0);
            permission.signal(SIGSTOP);
            // A pid that the daemon has not met makes it ask the permission service.
            Json::Value request = operation("getClientFocusStatus");
            request["type"] = 0;
            request["pids"].append(coach.pid());
            coach.post(request);
            mHeadset->awaitTrue("the call has begun", [&] { return coach.tookAll(); });
            coach.process().kill();
            permission.signal(SIGCONT);
            mHeadset->crashApp(kCoachPackage);
        }
        mHeadset->expect(kShell, {{{kShell, kBoth}, {kGame, kBoth}}, kGame, kGame, ""});
    });
}

TEST_F(FaultsTest, aCrashBetweenReportAndQuestionIsSeen) {
    run([this] {
        startGame();
        mHeadset->crashApp(kGame);
        mHeadset->expect(kShell, {{{kShell, kBoth}}, kShell, kShell, ""});
        mHeadset->startApp(kGame);
        mHeadset->expect(kShell, {{{kShell, kBoth}, {kGame, kNoFocus}}, kShell, kShell, ""});
    });
}

TEST_F(FaultsTest, aSessionWithoutHubEndsWithItsName) {
    SKIP_ON_DEVICE("the kernel does not go");
    mHeadset->stack().killCore(Stack::kHub);
    EXPECT_THAT(errorOf([this] { mHeadset->expect(kShell, {}); }), HasSubstr("has ended"));
    EXPECT_THAT(errorOf([this] { mHeadset->stack().pause(std::chrono::milliseconds(0)); }),
                HasSubstr("binderhub has ended (signal 9)"));
}

TEST_F(FaultsTest, aSessionWithoutServiceManagerEndsWithItsName) {
    mHeadset->stack().killCore(Stack::kServiceManager);
    EXPECT_THAT(errorOf([this] { mHeadset->expect(kShell, {}); }),
                HasSubstr("servicemanager has ended (signal 9)"));
}

TEST_F(FaultsTest, aDaemonThatEndsByItselfEndsTheSessionWithItsName) {
    mHeadset->stack().killCore(Stack::kDaemon);
    EXPECT_THAT(errorOf([this] { mHeadset->expect(kShell, {}); }),
                HasSubstr("vrfocus has ended (signal 9)"));
}

}  // namespace
}  // namespace sim
