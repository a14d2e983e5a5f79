// SPDX-License-Identifier: Apache-2.0
// Scenarios as a person plays them: from the command line, to their end or to a stop.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <map>

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
        mLaunch.program = std::string(PROGRAMS) + "/headset";
        mLaunch.arguments = {"headset", "run",
                             std::string(SOURCE_ROOT) + "/scenarios/a-day-on-the-headset.scenario"};
        mLaunch.environment = {{"TMPDIR", mTemp.path}};
        if (onDevice()) mLaunch.environment["BINDER_DRIVER"] = testDevice();
    }

    /** What the session left in the folder for temporary files. */
    size_t leftovers() const {
        return static_cast<size_t>(std::distance(fs::directory_iterator(mTemp.path), {}));
    }

    /** Plays this text. */
    void play(const std::string& text) {
        const std::string file = std::string(mScenarios.path) + "/my.scenario";
        ASSERT_TRUE(android::base::WriteStringToFile(text, file));
        mLaunch.arguments = {"headset", "run", file};
    }

    /** A scenario that would go on for longer than anything else here. */
    void playForLong() {
        play("start game\nfront game\nexpect focus game both\n"
             "wait until focus game none within=600\n");
    }

    /** Plays what it would play, but after this step waits for a text in the daemon's log. */
    void playUntilLogged(const std::string& step, const std::string& text) {
        std::string scenario;
        ASSERT_TRUE(android::base::ReadFileToString(mLaunch.arguments.back(), &scenario));
        const size_t found = scenario.find(step);
        ASSERT_NE(found, std::string::npos);
        scenario.insert(found + step.size(), "wait until log \"" + text + "\" within=600\n");
        play(scenario);
    }

    /** Writes to the log of the daemon of the one session that runs. */
    void log(const std::string& line) const {
        for (const auto& entry : fs::directory_iterator(mTemp.path)) {
            const fs::path file = entry.path() / "vrfocus.log";
            if (fs::exists(file)) std::ofstream(file, std::ios::app) << line;
        }
    }

    /** What a process has started, by name: services by that of their service. */
    static std::map<std::string, pid_t> childrenOf(pid_t parent) {
        std::map<std::string, pid_t> children;
        for (const auto& entry : fs::directory_iterator("/proc")) {
            std::string status, words;
            if (!android::base::ReadFileToString(entry.path() / "status", &status)) continue;
            if (status.find("\nPPid:\t" + std::to_string(parent) + "\n") == std::string::npos) {
                continue;
            }
            if (!android::base::ReadFileToString(entry.path() / "cmdline", &words)) continue;
            const std::string name = words.c_str();
            const std::string second =
                    words.size() > name.size() ? words.c_str() + name.size() + 1 : "";
            children[name == "sim_service" ? second : name] = std::stoi(entry.path().filename());
        }
        return children;
    }

    static void expectGone(const std::map<std::string, pid_t>& processes) {
        for (const auto& [name, pid] : processes)
            EXPECT_TRUE(RunningProgram::awaitEnd(pid)) << name;
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
    TemporaryDir mScenarios;
    Launch mLaunch;
};

void expectWholeScenario(RunningProgram& headset) {
    EXPECT_EQ(headset.finish(), 0) << headset.text();
    EXPECT_THAT(headset.text(), HasSubstr(".scenario: every expectation held\n"));
}

TEST_F(HeadsetProgramTest, playsToItsEndAndLeavesNothing) {
    playUntilLogged("report game visible\n", "the test has looked");
    RunningProgram headset(mLaunch);
    ASSERT_TRUE(headset.prints("wait until log")) << headset.text();
    const auto children = childrenOf(headset.process().pid());
    log("the test has looked\n");
    expectWholeScenario(headset);
    EXPECT_EQ(children.size(), kCoreProcesses + 6 + 4) << "shell, game, observer, telemetry";
    expectGone(children);
    EXPECT_THAT(headset.text(), Not(HasSubstr("\033"))) << "no colours where nobody sees them";
    EXPECT_THAT(headset.text(), HasSubstr("=== VrFocusService ===")) << "the dump";
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(HeadsetProgramTest, playsToItsEndAsAnOrdinaryUser) {
    if (geteuid() != 0) GTEST_SKIP() << "the other tests run as an ordinary user already";
    if (!ChildProcess::canChangeUids()) GTEST_SKIP() << "no other user can be had here";
    TemporaryDir programs;
    moveTo(programs, {std::begin(kPrograms), std::end(kPrograms)}, /*copy=*/true);
    fs::copy(fs::path(PROGRAMS) / "telemetry-events", fs::path(programs.path) / "telemetry-events");
    ASSERT_EQ(chown(mTemp.path, kNobody, kNobody), 0);
    std::string day;
    ASSERT_TRUE(android::base::ReadFileToString(mLaunch.arguments.back(), &day));
    play(onDevice() ? "start game\nfront game\nexpect focus game both\n" : day);
    fs::permissions(mScenarios.path, fs::perms(0755));
    mLaunch.uid = kNobody;
    if (onDevice()) mLaunch.environment["BINDER_DRIVER"] = kUsersDevice;
    RunningProgram headset(mLaunch);
    expectWholeScenario(headset);
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(HeadsetProgramTest, whatDoesNotHoldEndsItWithThePlaceAndWhatWasTheCase) {
    const struct {
        const char* line;
        const char* expected;
        const char* got;
    } rows[] = {{"expect focus game head", "head", "both"},
                {"expect immersive none", "none", "game"},
                {"expect heard shell top:com.other.app", "top:com.other.app",
                 "top:com.orbit.racer:com.orbit.racer"},
                {"expect heard shell head exact=yes", "head", "head head"},
                {"expect no heard shell head", "head", "head head"},
                {"expect heard shell head head head", "head head head", "head head"},
                {"expect helper top:com.other.app", "top:com.other.app", "top:com.orbit.racer"},
                {"expect telemetry top:com.other.app", "top:com.other.app", "top:com.orbit.racer"},
                {"expect no telemetry", "", "top:com.orbit.racer"},
                {"ask game top", "status ok", "status security"},
                {"ask shell top status=dead", "status dead", "status ok"}};
    for (const auto& row : rows) {
        const std::string line = row.line;
        SCOPED_TRACE(line);
        const bool waits = line.starts_with("expect") && line.find(" no ") == std::string::npos;
        play("start shell permissions=read-focus\nstart game process=com.orbit.racer\n"
             "listen shell head\nlisten shell top\nfront game\nreport game visible\n"
             "expect heard shell top:com.orbit.racer:com.orbit.racer\n" +
             line + (waits ? " within=0.3" : "") + "\n");
        RunningProgram headset(mLaunch);
        EXPECT_EQ(headset.finish(), 1) << headset.text();
        EXPECT_THAT(headset.text(), HasSubstr("my.scenario:8:1: " + line));
        const size_t due = headset.text().find("\n    expected  ");
        const size_t got = headset.text().find("\n    got       ");
        ASSERT_NE(got, std::string::npos) << headset.text();
        EXPECT_THAT(headset.text().substr(due, got - due), HasSubstr(row.expected));
        EXPECT_THAT(headset.text().substr(got), HasSubstr(row.got));
        EXPECT_THAT(headset.text(), HasSubstr("- game reports its XR session visible"));
        EXPECT_EQ(leftovers(), 0u);
    }
}

/** A daemon that says nothing but the truth, and a tool that does not decode it. */
TEST_F(HeadsetProgramTest, telemetryThatCannotBeDecodedIsNotTheOneThatIsDue) {
    TemporaryDir programs;
    moveTo(programs, {std::begin(kPrograms), std::end(kPrograms)}, /*copy=*/true);
    play("start game process=com.orbit.racer\nfront game\nreport game visible\n"
         "expect telemetry top:com.orbit.racer within=0.3\n");
    RunningProgram headset(mLaunch);
    EXPECT_EQ(headset.finish(), 1);
    EXPECT_THAT(headset.text(), HasSubstr("my.scenario:4:1: expect telemetry"));
}

TEST_F(HeadsetProgramTest, twentyAtOnceDoNotMeet) {
    SKIP_ON_DEVICE("a device has one context manager");
    play("start shell process=com.velmar.shellenv uid=10050 permissions=read-focus\n"
         "listen shell top\nfront shell\n"
         "expect heard shell top:com.velmar.shellenv top:com.velmar.shellenv exact=yes\n"
         "start game process=com.orbit.racer uid=10061\nfront game\nreport game visible\n"
         "expect immersive game\nexpect foreground game\n"
         "expect dump focusPolicy.allClients.# 2\n");
    std::vector<std::unique_ptr<RunningProgram>> all;
    for (int number = 0; number < 20; ++number)
        all.push_back(std::make_unique<RunningProgram>(mLaunch));
    for (const auto& each : all)
        expectWholeScenario(*each);
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(HeadsetProgramTest, aProcessThatEndsByItselfEndsItWithTheNameAndLeavesNothing) {
    playForLong();
    std::vector<std::string> names{"servicemanager",      "activity",       "display",
                                   "permission",          "package_native", "vrfocus",
                                   "VelmarWindowManager", "vrfocushelper"};
    if (!onDevice()) names.emplace_back("binderhub");
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        RunningProgram headset(mLaunch);
        ASSERT_TRUE(headset.prints("wait until")) << headset.text();
        const auto children = childrenOf(headset.process().pid());
        ASSERT_TRUE(children.contains(name));
        ASSERT_EQ(kill(children.at(name), SIGKILL), 0);
        EXPECT_EQ(headset.finish(), 1) << headset.text();
        EXPECT_THAT(headset.text(), HasSubstr("my.scenario:4:1: wait until"));
        EXPECT_THAT(headset.text(), HasSubstr(name + " has ended (signal 9)"));
        expectGone(children);
        EXPECT_EQ(leftovers(), 0u);
    }
}

TEST_F(HeadsetProgramTest, aStopInTheMiddleLeavesNoProcessAndNoFolder) {
    playForLong();
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        RunningProgram headset(mLaunch);
        ASSERT_TRUE(headset.prints("wait until")) << headset.text();
        const auto children = childrenOf(headset.process().pid());
        EXPECT_EQ(children.size(), kCoreProcesses + 6 + 3);
        headset.process().signal(number);
        EXPECT_EQ(headset.finish(), 128 + number) << headset.text();
        expectGone(children);
        EXPECT_EQ(leftovers(), 0u);
    }
}

TEST_F(HeadsetProgramTest, aStopWhileItStartsLeavesNothingEither) {
    playForLong();
    RunningProgram headset(mLaunch);
    ASSERT_TRUE(headset.prints("start game")) << headset.text();
    headset.process().signal(SIGTERM);
    EXPECT_EQ(headset.finish(), 128 + SIGTERM) << headset.text();
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(HeadsetProgramTest, killingItKillsAllThatItStarted) {
    playForLong();
    RunningProgram headset(mLaunch);
    ASSERT_TRUE(headset.prints("wait until")) << headset.text();
    const auto children = childrenOf(headset.process().pid());
    EXPECT_GE(children.size(), kCoreProcesses + 6);
    headset.process().kill();
    expectGone(children);
}

TEST_F(HeadsetProgramTest, whoseFolderWasDeletedStillEndsInOrder) {
    playForLong();
    RunningProgram headset(mLaunch);
    ASSERT_TRUE(headset.prints("wait until")) << headset.text();
    for (const auto& entry : fs::directory_iterator(mTemp.path))
        fs::remove_all(entry.path());
    const auto children = childrenOf(headset.process().pid());
    headset.process().signal(SIGTERM);
    EXPECT_EQ(headset.finish(), 128 + SIGTERM) << headset.text();
    expectGone(children);
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(HeadsetProgramTest, aScenarioIsFoundByItsNameAndElseTheNearestAreNamed) {
    const fs::path folder(mScenarios.path);
    fs::create_directory(folder / "scenarios");
    for (const char* name : {"a-slow-day", "the-hub-dies", "the-hub-restarts", "a-tour"}) {
        std::ofstream(folder / "scenarios" / (std::string(name) + ".scenario")) << "title here\n";
    }
    std::ofstream wrong(folder / "scenarios" / "many-mistakes.scenario");
    for (int line = 0; line < 22; ++line)
        wrong << "nonsense\n";
    wrong.close();
    Launch shell = mLaunch;
    shell.program = "/bin/sh";
    const struct {
        const char* word;
        int status;
        const char* text;
    } rows[] = {{"a-tour", 0, "# OK  scenarios/a-tour.scenario"},
                {"a-tour.scenario", 0, "# OK  scenarios/a-tour.scenario"},
                {"scenarios/a-tour", 0, "# OK  scenarios/a-tour.scenario"},
                {"a-tuor", 2, "headset: there is no scenario 'a-tuor'; did you mean a-tour,"},
                {"hubs-and-slow", 2, "did you mean a-slow-day,"},
                {"scenarios/the-hub-restart.scenario", 2, "did you mean the-hub-restarts, "},
                {"many-mistakes", 2, "many-mistakes.scenario: 2 more mistakes\n"},
                {"a-tour none", 2, "there is no scenario 'none'"},
                {"scenarios", 2, "there is no scenario 'scenarios'"}};
    for (const auto& row : rows) {
        shell.arguments = {
                "sh", "-c",
                "cd " + folder.string() + " && exec " + mLaunch.program + " run " + row.word};
        RunningProgram headset(shell);
        EXPECT_EQ(headset.finish(), row.status) << row.word;
        EXPECT_THAT(headset.text(), HasSubstr(row.text));
        EXPECT_EQ(headset.text().find("# scenarios/") == std::string::npos, row.status != 0)
                << "nothing is played before all have been found";
    }
}

TEST_F(HeadsetProgramTest, onADeviceAScenarioAboutTheHubSaysThatThereIsNone) {
    if (!onDevice()) GTEST_SKIP() << "needs a binder device";
    for (const char* verb : {"kill", "stop", "hang", "restart"}) {
        play(std::string(verb) + " hub\n");
        RunningProgram headset(mLaunch);
        EXPECT_EQ(headset.finish(), 1);
        EXPECT_THAT(headset.text(), HasSubstr("there is no hub here: calls go through /dev/"));
    }
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
                {"--json", "--json goes with --stdin"},
                {"--stdin --json --stdin", "'--stdin' is given twice"},
                {"--stdin file", "what is 'file'?"},
                {"run", "run wants a SCENARIO"},
                {"run --loud", "what is '--loud'?"},
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
                                                          mLaunch.arguments}) {
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
