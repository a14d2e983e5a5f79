// SPDX-License-Identifier: Apache-2.0
// The built-in session as a person plays it: from the command line, to its end or to a stop.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>

#include "RunningProgram.h"
#include "TestDevice.h"

namespace sim {
namespace {

using binderhost::tests::onDevice;
using binderhost::tests::testDevice;
using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;
/** Has had no context manager of root's, whose role no other user may take until the next boot. */
const char* const kUsersDevice = "/dev/vndbinder";
/** Hub, service manager, daemon; the kernel needs no hub. */
const size_t kCoreProcesses = onDevice() ? 2 : 3;
const char* const kPrograms[] = {"binderhub", "servicemanager", "sim_service", "vrfocus",
                                 "sim_app",   "dumpsys",        "setprop",     "telemetry"};

class HeadsetProgramTest : public testing::Test {
protected:
    HeadsetProgramTest() {
        // As /tmp is: the session's apps pass through it under uids of their own.
        fs::permissions(mTemp.path, fs::perms(0711));
        mLaunch.program = std::string(PROGRAMS) + "/headset";
        mLaunch.arguments = {"headset"};
        mLaunch.environment = {{"TMPDIR", mTemp.path}};
        if (onDevice()) mLaunch.environment["BINDER_DRIVER"] = testDevice();
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

/** The steps, without what differs each time: pids, and the room they take. */
std::string timeline(const std::string& text) {
    static const std::regex kNumber("[0-9]+"), kSpace(" +");
    const std::string steps = text.substr(std::min(text.find(" 1/20"), text.size()));
    return std::regex_replace(std::regex_replace(steps, kNumber, "N"), kSpace, " ");
}

void expectWholeSession(RunningProgram& headset) {
    EXPECT_EQ(headset.finish(), 0) << headset.text();
    for (int step = 1; step <= 20; ++step) {
        EXPECT_THAT(headset.text(), HasSubstr(std::to_string(step) + "/20  "));
    }
    EXPECT_THAT(headset.text(), HasSubstr("every answer was the one that was due"));
}

TEST_F(HeadsetProgramTest, playsToItsEndAndLeavesNothing) {
    RunningProgram headset(mLaunch);
    expectWholeSession(headset);
    EXPECT_THAT(headset.text(), Not(HasSubstr("\033"))) << "no colours where nobody sees them";
    EXPECT_EQ(leftovers(), 0u);
    const std::set<pid_t> pids = pidsIn(headset.text());
    EXPECT_EQ(pids.size(), kCoreProcesses + 6 + 1 + 6)
            << "with the activity manager that came back";
    for (const pid_t pid : pids)
        EXPECT_NE(kill(pid, 0), 0) << pid;
}

TEST_F(HeadsetProgramTest, playsToItsEndAsAnOrdinaryUser) {
    if (geteuid() != 0) GTEST_SKIP() << "the other tests run as an ordinary user already";
    if (!ChildProcess::canChangeUids()) GTEST_SKIP() << "no other user can be had here";
    TemporaryDir programs;
    moveTo(programs, {std::begin(kPrograms), std::end(kPrograms)}, /*copy=*/true);
    fs::copy(fs::path(PROGRAMS) / "telemetry-events", fs::path(programs.path) / "telemetry-events");
    ASSERT_EQ(chown(mTemp.path, kNobody, kNobody), 0);
    mLaunch.uid = kNobody;
    if (onDevice()) mLaunch.environment["BINDER_DRIVER"] = kUsersDevice;
    RunningProgram headset(mLaunch);
    expectWholeSession(headset);
    EXPECT_THAT(headset.text(), HasSubstr("apps under uid 65534"));
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(HeadsetProgramTest, theTimelineShowsWhatTheDaemonToldReportedAndDumped) {
    RunningProgram headset(mLaunch);
    expectWholeSession(headset);
    for (const char* line :
         {"> com.velmar.shellenv hears: head focus x3; input focus x3; top com.orbit.racer, "
          "immersive none x3\n",
          "> com.pulse.coach:tracking hears: head focus; top com.orbit.racer, immersive "
          "com.orbit.racer (pid ",
          "> vrfocushelper hears: top com.velmar.shellenv, immersive com.velmar.shellenv x2\n",
          "> telemetry: immersive_app_update: current_top_activity=com.orbit.racer\n",
          "> telemetry: immersive_app_update: current_top_activity=com.orbit.racer "
          "package_name=com.orbit.racer pid=",
          "- dumpsys vrfocus\n       | === VrFocusService ===\n", "- dumpsys vrfocus json\n"}) {
        EXPECT_THAT(headset.text(), HasSubstr(line));
    }
    const size_t unregistered = headset.text().find("unregisters its listener for input focus");
    EXPECT_THAT(headset.text().substr(unregistered), Not(HasSubstr("hears: head focus; input")));
}

/** A daemon that says nothing but the truth, and a tool that does not decode it. */
TEST_F(HeadsetProgramTest, telemetryThatCannotBeDecodedEndsTheSessionWithTheDifference) {
    TemporaryDir programs;
    moveTo(programs, {std::begin(kPrograms), std::end(kPrograms)}, /*copy=*/true);
    RunningProgram headset(mLaunch);
    EXPECT_EQ(headset.finish(), 1);
    EXPECT_THAT(headset.text(), HasSubstr("step 4 (The game starts its XR session): telemetry"));
    EXPECT_THAT(headset.text(), HasSubstr("expected {\"event\":\"VelmarVrfocusServiceEvents\""));
    EXPECT_THAT(headset.text(), HasSubstr("got      {\"bytes\":\"0a14"));
}

TEST_F(HeadsetProgramTest, theTimelineIsTheSameOnEachDriver) {
    RunningProgram here(mLaunch);
    expectWholeSession(here);
    mLaunch.environment.erase("BINDER_DRIVER");
    RunningProgram overAHub(mLaunch);
    expectWholeSession(overAHub);
    EXPECT_THAT(overAHub.text(), HasSubstr("ready  binderhub"));
    EXPECT_EQ(timeline(here.text()), timeline(overAHub.text()));
}

TEST_F(HeadsetProgramTest, twoSessionsAtOnceDoNotMeet) {
    SKIP_ON_DEVICE("a device has one context manager");
    RunningProgram one(mLaunch);
    RunningProgram two(mLaunch);
    expectWholeSession(one);
    expectWholeSession(two);
}

TEST_F(HeadsetProgramTest, aStopInTheMiddleLeavesNoProcessAndNoFolder) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        RunningProgram headset(mLaunch);
        ASSERT_TRUE(headset.prints(" 4/20")) << headset.text();
        headset.process().signal(number);
        EXPECT_EQ(headset.finish(), 128 + number) << headset.text();
        const std::set<pid_t> pids = pidsIn(headset.text());
        EXPECT_GE(pids.size(), kCoreProcesses + 6 + 2);
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
    ASSERT_TRUE(headset.prints(" 4/20")) << headset.text();
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
    const struct {
        const char* words;
        const char* mistake;
    } rows[] = {{"--colour", "what is '--colour'?"},
                {"shell", "what is 'shell'?"},
                {"--help --shell", "what is '--shell'?"},
                {"--shell --loud", "what is '--loud'?"},
                {"--shell ''", "what is ''?"}};
    for (const auto& row : rows) {
        shell.arguments = {"sh", "-c", "exec " + mLaunch.program + " " + row.words + " >/dev/null"};
        RunningProgram odd(shell);
        EXPECT_EQ(odd.finish(), 2) << row.words;
        EXPECT_THAT(odd.text(), HasSubstr(row.mistake)) << row.words;
        EXPECT_THAT(odd.text(), HasSubstr("usage: headset")) << row.words;
    }
}

TEST_F(HeadsetProgramTest, missingProgramsAreNamed) {
    TemporaryDir programs;
    moveTo(programs,
           {"servicemanager", "sim_service", "vrfocus", "dumpsys", "setprop", "telemetry"},
           /*copy=*/false);
    RunningProgram headset(mLaunch);
    EXPECT_EQ(headset.finish(), 1);
    EXPECT_THAT(headset.text(),
                HasSubstr("missing in " + std::string(programs.path) + ": binderhub, sim_app"));
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(HeadsetProgramTest, aProgramThatCannotStartEndsTheSessionWithItsName) {
    SKIP_ON_DEVICE("no hub is started there");
    TemporaryDir programs;
    moveTo(programs, {std::begin(kPrograms) + 1, std::end(kPrograms)}, /*copy=*/false);
    fs::create_symlink("/bin/false", fs::path(programs.path) / "binderhub");
    RunningProgram headset(mLaunch);
    EXPECT_EQ(headset.finish(), 1);
    EXPECT_THAT(headset.text(), HasSubstr("binderhub ended at its start (exit status 1)"));
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(HeadsetProgramTest, everyProgramWithoutADriverNamesItAndSaysWhatIsWrong) {
    const std::string socket = std::string(mTemp.path) + "/no-hub";
    const struct {
        std::string driver;
        std::string message;
    } rows[] = {{socket, "binderhub --socket " + socket},
                {"/dev/null", "/dev/null is no binder device"},
                {"/dev/no-binder", "/dev/no-binder: No such file or directory: is the kernel's"}};
    for (const auto& row : rows) {
        for (const std::vector<std::string>& arguments : {std::vector<std::string>{"vrfocus"},
                                                          {"servicemanager"},
                                                          {"service", "list"},
                                                          {"dumpsys", "-l"},
                                                          {"headset"}}) {
            // It starts a hub of its own where no device is named.
            if (arguments[0] == "headset" && row.driver == socket) continue;
            SCOPED_TRACE(arguments[0] + " on " + row.driver);
            Launch launch = mLaunch;
            launch.program = std::string(PROGRAMS) + "/" + arguments[0];
            launch.arguments = arguments;
            launch.environment["BINDER_DRIVER"] = row.driver;
            RunningProgram program(launch);
            EXPECT_EQ(program.finish(), 1);
            EXPECT_THAT(program.text(), HasSubstr(row.message));
        }
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
