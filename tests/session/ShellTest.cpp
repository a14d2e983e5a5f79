// SPDX-License-Identifier: Apache-2.0
// A shell inside a headset: its commands, its status, its end, and what happens meanwhile.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>

#include "RunningProgram.h"

namespace sim {
namespace {

using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

class ShellTest : public testing::Test {
protected:
    ShellTest() {
        mLaunch.program = "/bin/sh";
        mLaunch.environment = {{"TMPDIR", mTemp.path}, {"SHELL", "/bin/sh"}};
    }

    /** Runs a script in which $H is the program with --shell. */
    RunningProgram& start(const std::string& script) {
        const std::string headset = std::string(PROGRAMS) + "/headset --shell";
        mLaunch.arguments = {"sh", "-c", "H='" + headset + "'; " + script};
        mProgram = std::make_unique<RunningProgram>(mLaunch);
        return *mProgram;
    }

    int statusOf(const std::string& script) { return start(script).finish().value_or(-1); }

    const std::string& text() const { return mProgram->text(); }

    /** The number behind a word of the output. */
    pid_t pidAfter(const std::string& word) const {
        const size_t at = text().find(word);
        return at == std::string::npos ? 0 : atoi(text().c_str() + at + word.size());
    }

    size_t leftovers() const {
        return static_cast<size_t>(std::distance(fs::directory_iterator(mTemp.path), {}));
    }

    TemporaryDir mTemp;
    Launch mLaunch;
    std::unique_ptr<RunningProgram> mProgram;
};

TEST_F(ShellTest, aCommandHasTheStandardOutputAndTheStatusToItself) {
    EXPECT_EQ(statusOf("$H dumpsys vrfocus json 2>/dev/null"), 0);
    EXPECT_EQ(text().front(), '{');
    EXPECT_THAT(text(), HasSubstr("\"immersiveApp\" : \"com.orbit.racer\""));
    EXPECT_EQ(leftovers(), 0u);
    const struct {
        const char* command;
        int status;
    } rows[] = {{"sh -c 'exit 7'", 7},
                {"sh -c 'kill -9 $$'", 128 + 9},
                {"/no/such/command", 127},
                {"dumpsys nothing", 1},
                {"setprop", 2}};
    for (const auto& row : rows)
        EXPECT_EQ(statusOf(std::string("$H ") + row.command), row.status) << text();
}

TEST_F(ShellTest, whatTheDaemonReportsIsDecodedFieldByField) {
    EXPECT_EQ(statusOf("$H telemetry --json"), 0);
    const std::string pid = std::to_string(pidAfter("com.orbit.racer          pid "));
    // The row ends with the uid and a remark.
    const size_t row = text().find("com.orbit.racer          pid ");
    ASSERT_NE(row, std::string::npos) << text();
    const std::string uid = std::to_string(atoi(text().c_str() + text().find(" uid ", row) + 5));
    const std::string event = text().substr(std::min(text().rfind("{\"time_us\""), text().size()));
    for (const std::string& due :
         {std::string("\"event\":\"VelmarVrfocusServiceEvents\""), std::string("\"id\":120828"),
          std::string("\"current_top_activity\":\"com.orbit.racer\""),
          std::string("\"focus_event\":\"immersive_app_update\""),
          std::string("\"package_name\":\"com.orbit.racer\""),
          std::string("\"is_top_activity\":true"), "\"pid\":" + pid, "\"uid\":" + uid + ","}) {
        EXPECT_THAT(event, HasSubstr(due));
    }
}

TEST_F(ShellTest, commandsAreReadFromAPipeWithoutATerminal) {
    EXPECT_EQ(statusOf("printf 'service list\nservice call vrfocus 8\ntelemetry\nexit 5\n' |"
                       " $H 2>/dev/null"),
              5);
    EXPECT_THAT(text(), HasSubstr("vrfocus: [velmar.internal.IVrFocusService]"));
    EXPECT_THAT(text(), HasSubstr("c.o.m...")) << "the top activity, in a parcel";
    EXPECT_THAT(text(), HasSubstr("VelmarVrfocusServiceEvents focus_event="));
    EXPECT_THAT(text(), Not(HasSubstr("A headset runs")));
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(ShellTest, aPropertySetByHandIsSeenByTheDaemon) {
    EXPECT_EQ(statusOf("printf 'dumpsys vrfocus\nsetprop debug.nqs.vrfocus.permissive true\n"
                       "dumpsys vrfocus\n' | $H"),
              0);
    const size_t first = text().find("  Permissive: false\n");
    EXPECT_NE(first, std::string::npos);
    EXPECT_NE(text().find("  Permissive: true\n", first), std::string::npos);
}

TEST_F(ShellTest, whatWasStartedInItEndsWithIt) {
    EXPECT_EQ(statusOf("echo 'sleep 1000 & (setsid sleep 1000 & echo deep=$!); echo job=$!' | $H"),
              0);
    for (const char* word : {"deep=", "job="}) {
        ASSERT_GT(pidAfter(word), 0) << text();
        EXPECT_NE(kill(pidAfter(word), 0), 0) << word;
    }
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(ShellTest, theTermSignalEndsTheShellAndAllElse) {
    start("exec $H sh -c 'trap : TERM INT; echo up=$$; while :; do sleep 1000; done'");
    ASSERT_TRUE(mProgram->prints("up=")) << text();
    mProgram->process().signal(SIGTERM);
    EXPECT_EQ(mProgram->finish(), 128 + SIGTERM) << text();
    for (const char* word :
         {"up=", "com.orbit.racer          pid ", "vrfocus                  pid "}) {
        ASSERT_GT(pidAfter(word), 0) << word << text();
        EXPECT_NE(kill(pidAfter(word), 0), 0) << word;
    }
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(ShellTest, theInterruptKeyIsForWhatRunsInTheShell) {
    start("mkfifo $TMPDIR/go; exec $H sh -c 'echo up; read line < $TMPDIR/go; "
          "dumpsys vrfocus json; exit 4'");
    ASSERT_TRUE(mProgram->prints("up\n")) << text();
    mProgram->process().signal(SIGINT);
    mProgram->process().signal(SIGQUIT);
    std::ofstream(std::string(mTemp.path) + "/go") << "on\n";
    EXPECT_EQ(mProgram->finish(), 4) << text();
    EXPECT_THAT(text(), HasSubstr("\"immersiveApp\" : \"com.orbit.racer\""));
}

TEST_F(ShellTest, keysPressedWhileItEndsDoNotChangeTheStatus) {
    start("exec $H sh -c 'echo up; exit 4'");
    ASSERT_TRUE(mProgram->prints("up\n")) << text();
    while (mProgram->process().running()) {
        mProgram->process().signal(SIGINT);
        mProgram->process().signal(SIGQUIT);
    }
    EXPECT_EQ(mProgram->finish(), 4) << text();
    EXPECT_EQ(leftovers(), 0u);
}

TEST_F(ShellTest, theEndOfADaemonOrAnAppIsSaid) {
    // Each waits for what must be said, in the file that takes it, before it goes on.
    const std::string said = std::string(mTemp.path) + "/said";
    const std::string file = std::string(mTemp.path) + "/script";
    ASSERT_TRUE(android::base::WriteStringToFile(
            "await() { until grep -q \"$1\" " + said +
                    "; do sleep 0.01; done; }\n"
                    // Of this session, whatever else runs on the machine.
                    "pidOf() { sed -n \"s/^  $1  *pid \\([0-9]*\\).*/\\1/p\" " +
                    said +
                    "; }\n"
                    "kill -9 $(pidOf com.orbit.racer)\n"
                    "await 'com.velmar.shellenv has the focused window'\n"
                    "until dumpsys vrfocus json | grep -q '\"immersiveApp\" : "
                    "\"com.velmar.shellenv\"'; do :; done\n"
                    "kill -9 $(pidOf vrfocus)\n"
                    "await 'vrfocus (pid [0-9]*) has ended (signal 9)'\n"
                    "exit 3\n",
            file));
    EXPECT_EQ(statusOf("$H sh " + file + " 2>" + said), 3);
    std::string told;
    ASSERT_TRUE(android::base::ReadFileToString(said, &told));
    EXPECT_THAT(told, HasSubstr("com.orbit.racer has ended (signal 9)"));
    EXPECT_THAT(told, HasSubstr("com.velmar.shellenv is in the foreground"));
}

}  // namespace
}  // namespace sim
