// SPDX-License-Identifier: Apache-2.0
// Processes that hang, are slow, end on demand and come back: the controller works on meanwhile,
// and nothing that was done then is lost.
#include <android-base/file.h>
#include <gmock/gmock.h>
#include <signal.h>

#include "HeadsetFixture.h"

namespace sim {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

class ProcessFaultsTest : public HeadsetFixture {
protected:
    void expectGame() {
        mHeadset->expect(kShell, {{{kShell, kBoth}, {kGame, kBoth}}, kGame, kGame, ""});
    }

    /** The state letter of a process, as the system tells it. */
    static char stateOf(pid_t pid) {
        std::string text;
        const std::string file = "/proc/" + std::to_string(pid) + "/stat";
        if (!android::base::ReadFileToString(file, &text)) return '-';
        return text.at(text.rfind(')') + 2);
    }

    static std::string commandLineOf(pid_t pid) {
        std::string text;
        const std::string file = "/proc/" + std::to_string(pid) + "/cmdline";
        static_cast<void>(android::base::ReadFileToString(file, &text));
        return text.c_str();
    }
};

TEST_F(ProcessFaultsTest, whatHappensWhileAServiceHangsIsToldWhenItRunsOn) {
    run([this] {
        for (const std::string& service : Stack::serviceNames()) {
            SCOPED_TRACE(service);
            mHeadset->hang(service);
            EXPECT_EQ(stateOf(mHeadset->stack().service(service).pid()), 'T');
            mHeadset->startApp(Headset::AppSpec{kGame, kGame, mHeadset->uidOf(kGame)});
            mHeadset->showActivity(kGame);
            mHeadset->resume(service);
            EXPECT_NE(stateOf(mHeadset->stack().service(service).pid()), 'T');
            mHeadset->reportXrSession(kGame, Headset::kVisible);
            expectGame();
            mHeadset->crashApp(kGame);
            mHeadset->expect(kShell, {{{kShell, kBoth}}, kShell, kShell, ""});
        }
    });
}

TEST_F(ProcessFaultsTest, whoWouldGetNoAnswerIsToldSoAtOnce) {
    run([this] { startGame(); });
    for (const std::string& target : {std::string(kGame), std::string(Stack::kDaemon)}) {
        run([&] { mHeadset->hang(target); });
        EXPECT_THAT(errorOf([&] { mHeadset->ask(kGame, operation("getImmersiveApp")); }),
                    testing::Eq(target + " would not answer: it hangs"));
        // Notices wait in the daemon's queue.
        run([&] {
            mHeadset->reportWindowAgain();
            mHeadset->resume(target);
            expectGame();
        });
    }
}

TEST_F(ProcessFaultsTest, aHungHubHoldsUpEverybodyButTheController) {
    SKIP_ON_DEVICE("the kernel does not hang");
    run([this] {
        startGame();
        mHeadset->hang(Stack::kHub);
        mHeadset->install("com.new.app", 10099);
        mHeadset->showActivity(kShell);
        mHeadset->showActivity(kGame);
        mHeadset->resume(Stack::kHub);
        expectGame();
    });
}

TEST_F(ProcessFaultsTest, aSlowProcessDoesAllThatItIsToDo) {
    run([this] {
        for (const char* target : {"activity", "permission", Stack::kDaemon, kShell}) {
            SCOPED_TRACE(target);
            mHeadset->slow(target, milliseconds(5));
            startGame();
            mHeadset->resume(target);
            mHeadset->crashApp(kGame);
            mHeadset->expect(kShell, {{{kShell, kBoth}}, kShell, kShell, ""});
        }
    });
}

TEST_F(ProcessFaultsTest, aSlowProcessCanBeKilledAndIsReaped) {
    run([this] {
        startGame();
        const pid_t pid = mHeadset->app(kGame).pid();
        mHeadset->slow(kGame, milliseconds(5));
        mHeadset->kill(kGame);
        EXPECT_EQ(stateOf(pid), '-');
        mHeadset->expect(kShell, {{{kShell, kBoth}}, kShell, kShell, ""});
    });
}

TEST_F(ProcessFaultsTest, everyProcessEndsOnDemandAndNobodyComplains) {
    for (const bool isOrderly : {false, true}) {
        for (const std::string& target :
             {std::string("activity"), std::string("vrfocushelper"), std::string(Stack::kDaemon)}) {
            SCOPED_TRACE(target);
            run([&] {
                isOrderly ? mHeadset->stop(target) : mHeadset->kill(target);
                EXPECT_FALSE(mHeadset->isRunning(target));
                EXPECT_THAT(errorOf([&] { mHeadset->kill(target); }), HasSubstr(target));
                mHeadset->stack().pause(milliseconds(0));
                mHeadset->reportActivitiesAgain();
                mHeadset->restart(target);
                EXPECT_TRUE(mHeadset->isRunning(target));
                mHeadset->reportActivitiesAgain();
                mHeadset->reportWindowAgain();
                mHeadset->expect(kShell, {{{kShell, kBoth}}, kShell, kShell, ""});
            });
        }
    }
}

TEST_F(ProcessFaultsTest, anAppThatIsStoppedEndsByItselfEvenWhenItHangs) {
    run([this] {
        for (const bool hangs : {false, true}) {
            startGame();
            const pid_t pid = mHeadset->app(kGame).pid();
            if (hangs) mHeadset->hang(kGame);
            mHeadset->stop(kGame);
            EXPECT_EQ(stateOf(pid), '-');
            mHeadset->expect(kShell, {{{kShell, kBoth}}, kShell, kShell, ""});
        }
    });
}

/** As on the device, where all starts anew with what it stands on. */
TEST_F(ProcessFaultsTest, withTheGroundGoesAllThatStandsOnItAndComesBack) {
    std::vector<std::string> grounds{Stack::kServiceManager};
    if (binderhost::tests::testDevice().empty()) grounds.emplace_back(Stack::kHub);
    for (const std::string& ground : grounds) {
        SCOPED_TRACE(ground);
        run([&] {
            if (!mHeadset->appRuns(kGame)) startGame();
            const int daemon = mHeadset->stack().daemonPid();
            const int game = mHeadset->lastPidOf(kGame);
            mHeadset->kill(ground);
            for (const std::string& gone : {ground, std::string("activity"),
                                            std::string(Stack::kDaemon), std::string(kGame)}) {
                EXPECT_FALSE(mHeadset->isRunning(gone)) << gone;
            }
            mHeadset->stack().pause(milliseconds(0));
            EXPECT_THAT(errorOf([&] { mHeadset->restart("activity"); }), HasSubstr("cannot run"));
            mHeadset->restart(ground);
            EXPECT_NE(mHeadset->stack().daemonPid(), daemon);
            EXPECT_NE(mHeadset->lastPidOf(kGame), game);
            mHeadset->reportActivitiesAgain();
            mHeadset->reportWindowAgain();
            mHeadset->reportXrSession(kGame, Headset::kVisible);
            expectGame();
        });
        if (HasFailure()) return;
    }
}

TEST_F(ProcessFaultsTest, aRenamedAppIsKnownByItsNewName) {
    run([this] {
        startGame();
        const pid_t pid = mHeadset->app(kGame).pid();
        for (const std::string& name :
             {std::string("x"), std::string("com.velmar.a.rather.long.process.name:remote"),
              std::string("com.orbit.racer")}) {
            mHeadset->renameApp(kGame, name);
            EXPECT_EQ(commandLineOf(pid), name);
        }
        expectGame();
        EXPECT_THAT(errorOf([this] { mHeadset->renameApp(kGame, std::string(1 << 20, 'x')); }),
                    HasSubstr("no room"));
        EXPECT_EQ(commandLineOf(pid), kGame);
    });
}

TEST_F(ProcessFaultsTest, aPidComesBackUnderAnotherNameAndUid) {
    run([this] {
        mHeadset->startApp(
                Headset::AppSpec{kGame, kGame, mHeadset->uidOf(kGame), /*isReusable=*/true});
        mHeadset->showActivity(kGame);
        mHeadset->reportXrSession(kGame, Headset::kVisible);
        expectGame();
        const pid_t pid = mHeadset->app(kGame).pid();
        const int uid = mHeadset->uidOf(kCoachPackage);
        mHeadset->reuse(kGame, {kCoachPackage, kCoachPackage, uid});
        EXPECT_FALSE(mHeadset->appRuns(kGame));
        EXPECT_EQ(mHeadset->app(kCoachPackage).pid(), pid);
        EXPECT_EQ(commandLineOf(pid), kCoachPackage);
        EXPECT_EQ(mHeadset->ask(kCoachPackage, operation("connect"))["exception"], 0);
        mHeadset->awaitTrue("the shell is on top",
                            [&] { return mHeadset->answersFor(kShell).top == kShell; });
        // To the daemon one pid and uid is one client.
        if (mHeadset->stack().uids() == Stack::Uids::Own) return;
        mHeadset->showActivity(kCoachPackage);
        mHeadset->reportXrSession(kCoachPackage, Headset::kVisible);
        mHeadset->awaitTrue("the new one is immersive", [&] {
            return mHeadset->answersFor(kShell).immersive == kCoachPackage;
        });
        const Json::Value answer = mHeadset->ask(kShell, operation("getImmersiveApp"));
        EXPECT_EQ(answer["app"]["uid"], uid);
        // And once more, back to what it was.
        mHeadset->reuse(kCoachPackage, {kGame, kGame, mHeadset->uidOf(kGame)});
        EXPECT_EQ(mHeadset->app(kGame).pid(), pid);
    });
}

TEST_F(ProcessFaultsTest, quietChangesAreAnsweredAndNotTold) {
    run([this] {
        startGame();
        mEvents.clear();
        mHeadset->quietly([this] {
            mHeadset->finishActivity(kGame);
            mHeadset->focusNoWindow();
        });
        EXPECT_EQ(mEvents, "");
        EXPECT_EQ(mHeadset->world().topPackageOnPrimaryDisplay(), kShell);
        expectGame();
        mHeadset->notice({Notice::Kind::ForegroundActivities, mHeadset->lastPidOf(kGame),
                          mHeadset->uidOf(kGame), 0, 0});
        mHeadset->reportActivitiesAgain();
        mHeadset->awaitTrue("the shell is on top",
                            [&] { return mHeadset->answersFor(kShell).top == kShell; });
    });
}

/** The call waits in the daemon, for a service that does not answer, when its caller is killed. */
TEST_F(ProcessFaultsTest, aClientKilledInMidCallHarmsNobody) {
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

}  // namespace
}  // namespace sim
