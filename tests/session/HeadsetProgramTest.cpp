// SPDX-License-Identifier: Apache-2.0
// The built-in session as a person plays it: from the command line, to its end or to a stop.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <regex>
#include <set>

#include "RunningProgram.h"

namespace sim {
namespace {

using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;
const char* const kPrograms[] = {"binderhub", "servicemanager", "sim_service", "vrfocus",
                                 "sim_app"};

class HeadsetProgramTest : public testing::Test {
protected:
    HeadsetProgramTest() {
        // As /tmp is: the session's apps pass through it under uids of their own.
        fs::permissions(mTemp.path, fs::perms(0711));
        mLaunch.program = std::string(PROGRAMS) + "/headset";
        mLaunch.arguments = {"headset"};
        mLaunch.environment = {{"TMPDIR", mTemp.path}};
    }

    /** What the session left in the folder for temporary files. */
    size_t leftovers() const {
        return static_cast<size_t>(std::distance(fs::directory_iterator(mTemp.path), {}));
    }

    /** The pids that the output names, of everything the session has started. */
    static std::set<pid_t> pidsIn(const std::string& text) {
        static const std::regex kPid("pid ([0-9]+)|com[.][a-z.:]+ +([0-9]+) ");
        std::set<pid_t> pids;
        for (std::sregex_iterator match(text.begin(), text.end(), kPid), end; match != end;
             ++match) {
            pids.insert(std::stoi((*match)[1].matched ? (*match)[1] : (*match)[2]));
        }
        return pids;
    }

    /** A folder with a copy of headset, which finds the other programs beside itself. */
    void moveTo(const TemporaryDir& folder, const std::vector<std::string>& others, bool copy) {
        const fs::path to(folder.path);
        fs::permissions(to, fs::perms(0755));
        fs::copy_file(fs::path(PROGRAMS) / "headset", to / "headset");
        for (const std::string& name : others) {
            if (copy) {
                fs::copy_file(fs::path(PROGRAMS) / name, to / name);
            } else {
                fs::create_symlink(fs::path(PROGRAMS) / name, to / name);
            }
        }
        mLaunch.program = to / "headset";
    }

    TemporaryDir mTemp;
    Launch mLaunch;
};

void expectWholeSession(RunningProgram& headset) {
    EXPECT_EQ(headset.finish(), 0) << headset.text();
    for (int step = 1; step <= 15; ++step) {
        EXPECT_THAT(headset.text(), HasSubstr(std::to_string(step) + "/15  "));
    }
    EXPECT_THAT(headset.text(), HasSubstr("every answer was the one that was due"));
}

TEST_F(HeadsetProgramTest, playsToItsEndAndLeavesNothing) {
    RunningProgram headset(mLaunch);
    expectWholeSession(headset);
    EXPECT_THAT(headset.text(), Not(HasSubstr("\033"))) << "no colours where nobody sees them";
    EXPECT_EQ(leftovers(), 0u);
    const std::set<pid_t> pids = pidsIn(headset.text());
    EXPECT_EQ(pids.size(), 3 + 6 + 1 + 6u) << "with the activity manager that came back";
    for (const pid_t pid : pids)
        EXPECT_NE(kill(pid, 0), 0) << pid;
}

TEST_F(HeadsetProgramTest, playsToItsEndAsAnOrdinaryUser) {
    if (geteuid() != 0) GTEST_SKIP() << "the other tests run as an ordinary user already";
    if (!ChildProcess::canChangeUids()) GTEST_SKIP() << "no other user can be had here";
    TemporaryDir programs;
    moveTo(programs, {std::begin(kPrograms), std::end(kPrograms)}, /*copy=*/true);
    ASSERT_EQ(chown(mTemp.path, kNobody, kNobody), 0);
    mLaunch.uid = kNobody;
    RunningProgram headset(mLaunch);
    expectWholeSession(headset);
    EXPECT_THAT(headset.text(), HasSubstr("apps under uid 65534"));
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(HeadsetProgramTest, twoSessionsAtOnceDoNotMeet) {
    RunningProgram one(mLaunch);
    RunningProgram two(mLaunch);
    expectWholeSession(one);
    expectWholeSession(two);
}

TEST_F(HeadsetProgramTest, aStopInTheMiddleLeavesNoProcessAndNoFolder) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        RunningProgram headset(mLaunch);
        ASSERT_TRUE(headset.prints(" 3/15")) << headset.text();
        headset.process().signal(number);
        EXPECT_EQ(headset.finish(), 128 + number) << headset.text();
        const std::set<pid_t> pids = pidsIn(headset.text());
        EXPECT_GE(pids.size(), 3 + 6 + 2u);
        for (const pid_t pid : pids)
            EXPECT_NE(kill(pid, 0), 0) << pid;
        EXPECT_EQ(leftovers(), 0u);
    }
}

TEST_F(HeadsetProgramTest, aStopWhileItStartsLeavesNothingEither) {
    RunningProgram headset(mLaunch);
    ASSERT_TRUE(headset.prints("servicemanager")) << headset.text();
    headset.process().signal(SIGTERM);
    EXPECT_EQ(headset.finish(), 128 + SIGTERM) << headset.text();
    for (const pid_t pid : pidsIn(headset.text()))
        EXPECT_NE(kill(pid, 0), 0) << pid;
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(HeadsetProgramTest, killingItKillsAllThatItStarted) {
    RunningProgram headset(mLaunch);
    ASSERT_TRUE(headset.prints(" 3/15")) << headset.text();
    headset.process().kill();
    for (const pid_t pid : pidsIn(headset.text()))
        EXPECT_TRUE(RunningProgram::awaitEnd(pid)) << pid;
}

TEST_F(HeadsetProgramTest, helpIsPrintedAndOtherWordsAreRefusedWithUsageOnStandardError) {
    mLaunch.arguments = {"headset", "--help"};
    RunningProgram help(mLaunch);
    EXPECT_EQ(help.finish(), 0);
    EXPECT_THAT(help.text(), HasSubstr("usage: headset"));

    Launch shell = mLaunch;
    shell.program = "/bin/sh";
    shell.arguments = {"sh", "-c", "exec " + mLaunch.program + " --colour >/dev/null"};
    RunningProgram odd(shell);
    EXPECT_EQ(odd.finish(), 2);
    EXPECT_THAT(odd.text(), HasSubstr("--colour"));
    EXPECT_THAT(odd.text(), HasSubstr("usage: headset"));
}

TEST_F(HeadsetProgramTest, missingProgramsAreNamed) {
    TemporaryDir programs;
    moveTo(programs, {"servicemanager", "sim_service", "vrfocus"}, /*copy=*/false);
    RunningProgram headset(mLaunch);
    EXPECT_EQ(headset.finish(), 1);
    EXPECT_THAT(headset.text(),
                HasSubstr("missing in " + std::string(programs.path) + ": binderhub, sim_app"));
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(HeadsetProgramTest, aProgramThatCannotStartEndsTheSessionWithItsName) {
    TemporaryDir programs;
    moveTo(programs, {"servicemanager", "sim_service", "vrfocus", "sim_app"}, /*copy=*/false);
    fs::create_symlink("/bin/false", fs::path(programs.path) / "binderhub");
    RunningProgram headset(mLaunch);
    EXPECT_EQ(headset.finish(), 1);
    EXPECT_THAT(headset.text(), HasSubstr("binderhub ended at its start (exit status 1)"));
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(HeadsetProgramTest, everyProgramWithoutAHubSaysWhatToStart) {
    const std::string socket = std::string(mTemp.path) + "/no-hub";
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"vrfocus"}, {"servicemanager"}}) {
        Launch launch;
        launch.program = std::string(PROGRAMS) + "/" + arguments[0];
        launch.arguments = arguments;
        launch.environment = {{"BINDER_DRIVER", socket}};
        RunningProgram program(launch);
        EXPECT_EQ(program.finish(), 1) << arguments[0];
        EXPECT_THAT(program.text(), HasSubstr("binderhub --socket " + socket)) << arguments[0];
    }
}

TEST_F(HeadsetProgramTest, simulatedProcessesRefuseWordsTheyDoNotKnow) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"sim_service"},
                                                      {"sim_service", "telephony"},
                                                      {"sim_service", "activity", "display"},
                                                      {"sim_app", "loud"}}) {
        Launch launch;
        launch.program = std::string(PROGRAMS) + "/" + arguments[0];
        launch.arguments = arguments;
        RunningProgram program(launch);
        EXPECT_EQ(program.finish(), 2) << arguments[0];
        EXPECT_THAT(program.text(), HasSubstr("usage: " + arguments[0]));
    }
}

}  // namespace
}  // namespace sim
