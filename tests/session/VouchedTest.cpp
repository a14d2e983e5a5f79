// SPDX-License-Identifier: Apache-2.0
//
// Whom a session's hub vouches for, and whom not; and what is over when it says that nothing is in
// flight.
#include <android-base/file.h>
#include <driver/AssignedUids.h>
#include <gmock/gmock.h>
#include <json/reader.h>
#include <unistd.h>

#include <map>
#include <sstream>

#include "HeadsetFixture.h"

namespace sim {
namespace {

using testing::HasSubstr;

class VouchedTest : public HeadsetFixture {
protected:
    void SetUp() override {
        if (!binderhost::tests::testDevice().empty()) GTEST_SKIP() << "a device has no hub";
        HeadsetFixture::SetUp();
    }
    int exceptionOf(const std::string& app, const Json::Value& request) {
        return mHeadset->ask(app, request)["exception"].asInt();
    }
    std::map<int, int> uidsInDump() {
        return uidsIn(mHeadset->stack().runTool({"dumpsys", "vrfocus", "json"}).output);
    }
    /** By pid: the uids of all clients that the daemon knows. */
    static std::map<int, int> uidsIn(const std::string& json) {
        Json::Value dump;
        std::istringstream text(json);
        std::string problem;
        if (!Json::parseFromStream(Json::CharReaderBuilder(), text, &dump, &problem))
            throw SessionError(problem);
        std::map<int, int> uids;
        for (const Json::Value& client : dump["focusPolicy"]["allClients"])
            uids[client["pid"].asInt()] = client["uid"].asInt();
        return uids;
    }
    /** A program that the session has not started but that knows where its hub is. */
    Stack::ToolRun runStranger(const std::vector<std::string>& arguments, uid_t uid = geteuid()) {
        Launch launch;
        launch.program = std::string(PROGRAMS) + "/" + arguments.at(0);
        launch.arguments = arguments;
        if (uid != geteuid()) launch.uid = uid;
        return runToEnd(launch);
    }
    Stack::ToolRun runToEnd(Launch launch) {
        const TemporaryFile output;
        launch.logFile = output.path;
        launch.environment = mHeadset->stack().environment();
        Stack::ToolRun run{-1, ""};
        const auto process = ChildProcess::start(launch, &run.output);
        if (process == nullptr || !process->awaitEnd(mHeadset->stack().patience())) return run;
        run.status = process->exitStatus().value_or(-1);
        EXPECT_TRUE(android::base::ReadFileToString(output.path, &run.output));
        return run;
    }

    static constexpr int kOthers = binderhost::AssignedUids::kOthersUid;
};

TEST_F(VouchedTest, theDaemonKnowsEachAppByTheUidThatItWasInstalledWith) {
    run([this] {
        mHeadset->install(kTerminal, mHeadset->stack().toolUid(), {kDump});
        startGame();
        ASSERT_EQ(mHeadset->uidOf(kGame), 10061);
        const std::map<int, int> uids = uidsInDump();
        EXPECT_EQ(uids.at(mHeadset->app(kGame).pid()), 10061);
        EXPECT_EQ(uids.at(mHeadset->app(kShell).pid()), 10050);
    });
}

TEST_F(VouchedTest, permissionsAreThoseOfTheVouchedUid) {
    run([this] {
        startGame();
        // The kernel's uid is the same for both, and may be root's.
        EXPECT_EQ(exceptionOf(kShell, operation("getTopActivity")), 0);
        EXPECT_EQ(exceptionOf(kGame, operation("getTopActivity")), -1);
        // The uid of the tools holds nothing here.
        const Stack::ToolRun run = mHeadset->stack().runTool({"dumpsys", "vrfocus"});
        EXPECT_THAT(run.output, HasSubstr("PERMISSION_DENIED"));
    });
}

TEST_F(VouchedTest, whoTheSessionHasNotStartedIsACommandLinesWhateverUidTheKernelSays) {
    if (static_cast<int>(geteuid()) == kOthers) GTEST_SKIP() << "this user is the command line's";
    run([this] {
        // Anybody who passed under the kernel's uid would hold its permission.
        mHeadset->install("com.velmar.owner", static_cast<int>(geteuid()), {kDump});
        const Stack::ToolRun run = runStranger({"dumpsys", "vrfocus"});
        EXPECT_THAT(run.output, HasSubstr("PERMISSION_DENIED"));
        Json::Value request = operation("getClientFocusStatus");
        request["type"] = 0;
        request["pids"].append(getpid());
        EXPECT_EQ(exceptionOf(kShell, request), 0);
        mHeadset->startApp({"dumper", "com.velmar.owner", static_cast<int>(geteuid())});
        const Json::Value answer = mHeadset->ask("dumper", operation("dump"));
        EXPECT_EQ(uidsIn(answer["dump"].asString()).at(getpid()), kOthers);
    });
}

TEST_F(VouchedTest, anotherUserDoesNotReachTheSessionBeItRoots) {
    if (geteuid() != 0) GTEST_SKIP() << "only root has children of other users";
    const Stack::ToolRun run = runStranger({"dumpsys", "-l"}, /*uid=*/65534);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("(Permission denied)"));
}

TEST_F(VouchedTest, theServiceManagerTakesNoAppForItselfThatHasTheKernelsUid) {
    if (geteuid() < 10000) GTEST_SKIP() << "this user's uid is no app's";
    Launch launch;
    launch.program = SERVICE_PROCESS;
    const std::string uid = std::to_string(geteuid());
    launch.arguments = {"thief", "stolen", uid, "--ready-fd", "2"};
    launch.beforeExec = [this](pid_t child) { return mHeadset->stack().vouch(child, geteuid()); };
    constexpr int kRefused = 10 + 1;
    EXPECT_EQ(runToEnd(launch).status, kRefused);
}

TEST_F(VouchedTest, theServiceManagerHidesServicesFromAnIsolatedUid) {
    constexpr int kIsolatedUid = 99001;
    run([this] {
        mHeadset->startApp({"isolated", "com.velmar.isolated", kIsolatedUid});
        const Json::Value answer = mHeadset->ask("isolated", operation("getTopActivity"));
        EXPECT_EQ(answer["exception"], -129) << answer.toStyledString();
    });
}

TEST_F(VouchedTest, aPidThatComesBackUnderAnotherUidIsAnotherClient) {
    run([this] {
        mHeadset->install(kTerminal, mHeadset->stack().toolUid(), {kDump});
        mHeadset->startApp({kGame, kGame, mHeadset->uidOf(kGame), /*isReusable=*/true});
        const int pid = mHeadset->app(kGame).pid();
        mHeadset->reuse(kGame, {"successor", "com.other.app", 10099});
        mHeadset->startApp(kCoach);
        ASSERT_EQ(mHeadset->app("successor").pid(), pid);
        Json::Value request = operation("getClientFocusStatus");
        request["type"] = 0;
        request["pids"].append(pid);
        EXPECT_EQ(exceptionOf(kShell, request), 0);
        EXPECT_EQ(uidsInDump().at(pid), 10099);
        EXPECT_EQ(exceptionOf("successor", operation("getTopActivity")), -1);
    });
}

TEST_F(VouchedTest, whenItSettlesAllHaveHeardWhatTheyAreToHear) {
    run([this] {
        startGame();
        ASSERT_EQ(exceptionOf(kShell, operation("listenTop")), 0);
        for (int round = 0; round < 30; round++) {
            const char* front = round % 2 == 0 ? kShell : kGame;
            mHeadset->showActivity(front);
            mHeadset->settle();
            const Json::Value heard = mHeadset->ask(kShell, operation("heard"))["heard"];
            // One for the activities of each of the two and one for the window.
            ASSERT_EQ(heard.size(), 3u) << round << heard.toStyledString();
            EXPECT_EQ(heard[2]["top"], front);
        }
    });
}

TEST_F(VouchedTest, whatWaitsForAProcessThatHangsDoesNotKeepItFromSettling) {
    run([this] {
        startGame();
        ASSERT_EQ(exceptionOf(kShell, operation("listenTop")), 0);
        mHeadset->settle();
        mHeadset->app(kShell).process().hang();
        mHeadset->showActivity(kGame);
        mHeadset->reportXrSession(kGame, Headset::kVisible);
        mHeadset->settle();
        mHeadset->app(kShell).process().resume();
        mHeadset->settle();
        const Json::Value heard = mHeadset->ask(kShell, operation("heard"))["heard"];
        EXPECT_EQ(heard.size(), 2u) << heard.toStyledString();
    });
}

}  // namespace
}  // namespace sim
