// SPDX-License-Identifier: Apache-2.0
// A headset that a program leads: an answer to each line, in order; and its end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <thread>

#include "LedProgram.h"
#include "RunningProgram.h"

namespace sim {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using namespace std::string_literals;

LedProgram json() {
    return LedProgram(LedProgram::Through::Pipes, {"--stdin", "--json"});
}

/** None of the processes that were named to have started is there any more. */
void expectNothingLeft(const LedProgram& headset) {
    static const std::regex kPid("pid ([0-9]+)");
    const std::string& text = headset.text();
    for (std::sregex_iterator match(text.begin(), text.end(), kPid), end; match != end; ++match)
        EXPECT_NE(kill(std::stoi((*match)[1]), 0), 0) << (*match)[0];
    EXPECT_EQ(headset.leftovers(), 0u);
}

TEST(DialogueTest, everyLineIsAnsweredInOrderAndItsEventsComeBeforeTheAnswer) {
    LedProgram headset = json();
    headset.type("start game process=com.orbit.racer permissions=read-focus\n");
    Json::Value answer = headset.nextAnswer();
    EXPECT_EQ(answer["answer"], 1);
    EXPECT_EQ(answer["command"], "start game process=com.orbit.racer permissions=read-focus");
    EXPECT_EQ(answer["ok"], true);
    EXPECT_FALSE(answer.isMember("result"));
    EXPECT_THAT(headset.happened(), Contains(HasSubstr(R"({"event":"game starts (pid )")));

    headset.type("# a comment and an empty line are not answered\n\nfront game\n");
    EXPECT_EQ(headset.nextAnswer()["answer"], 4);
    EXPECT_THAT(headset.happened(), Contains(R"({"event":"activity: game is in the foreground"})"));
    headset.type("expect top game\nask game top\ntitle \"a b\"\nlist\nhelp front\n");
    EXPECT_EQ(headset.nextAnswer()["result"]["got"], "com.orbit.racer");
    EXPECT_EQ(headset.nextAnswer()["result"]["package"], "com.orbit.racer");
    EXPECT_EQ(headset.nextAnswer()["answer"], 7);
    EXPECT_THAT(headset.happened(), Contains(R"({"title":"a b"})"));
    EXPECT_EQ(headset.nextAnswer()["result"]["apps"]["game"]["focus"], "both");
    EXPECT_EQ(headset.nextAnswer()["result"][0]["usage"], "front APP [display=DISPLAY]");
    headset.endInput();
    EXPECT_EQ(headset.finish(), 0);
    expectNothingLeft(headset);
}

TEST(DialogueTest, whatEndsBetweenTwoLinesIsAnEventAtOnce) {
    LedProgram headset = json();
    headset.type("start game\n");
    EXPECT_EQ(headset.nextAnswer()["ok"], true);
    headset.killChild("game");
    EXPECT_EQ(headset.nextObject()["event"], "game has ended (signal 9)");
    EXPECT_EQ(headset.nextObject()["event"], "activity: game has died");
    headset.killChild("activity");
    EXPECT_THAT(headset.nextObject()["event"].asString(),
                testing::MatchesRegex("activity .pid [0-9]+. has ended .signal 9."));
    headset.type("start other\nrestart activity\nlist\n");
    EXPECT_EQ(headset.nextAnswer()["ok"], false);
    for (int line = 3; line <= 4; ++line)
        EXPECT_EQ(headset.nextAnswer()["ok"], true) << headset.text();
    headset.endInput();
    EXPECT_EQ(headset.finish(), 1);
    expectNothingLeft(headset);
}

TEST(DialogueTest, telemetryThatCannotBeReadIsSaidSoAndNotWaitedFor) {
    LedProgram headset = json();
    headset.type("start game\n");
    EXPECT_EQ(headset.nextAnswer()["ok"], true);
    headset.killChild("telemetry");
    headset.type("expect telemetry top within=60\nexpect no telemetry\n");
    for (int line = 2; line <= 3; ++line) {
        EXPECT_EQ(headset.nextAnswer()["error"]["message"],
                  "telemetry --follow has ended (signal 9)");
    }
}

TEST(DialogueTest, aBlockIsPlayedAtItsEnd) {
    LedProgram headset = json();
    headset.type("repeat 2\nproperty debug.x 1\nend\n");
    for (int line = 1; line <= 3; ++line)
        EXPECT_EQ(headset.nextAnswer()["answer"], line);
    EXPECT_EQ(headset.happened(), std::vector(2, R"({"playing":"property debug.x 1"})"s));
    headset.type("repeat 2\n");
    EXPECT_EQ(headset.nextAnswer()["ok"], true);
    headset.endInput();
    EXPECT_EQ(headset.nextAnswer()["error"]["message"], "this 'repeat' has no 'end'");
    EXPECT_EQ(headset.finish(), 2);
}

TEST(DialogueTest, ofABlockWhoseHeadIsAMistakeNothingIsDone) {
    const struct {
        const char* line;
        const char* mistake;
    } rows[] = {
            {"repeat x", "'x' is no whole number"},
            {"start game", ""},
            {"front game", ""},
            {"end", "nothing of this block is done: its 'repeat' was a mistake"},
            {"end", "'end' without 'repeat'"},
            {"front game", "no app 'game' was started"},
            {"repeat 2", ""},
            {"title outer", ""},
            {"repet 2", "there is no command 'repet'; did you mean 'repeat'?"},
            {"title inner", ""},
            {"repeat 2", ""},
            {"titel x", "there is no command 'titel'; did you mean 'title'?"},
            {"end", ""},
            {"end", "nothing of this block is done: its 'repeat' was a mistake"},
            {"end", ""},
    };
    LedProgram headset = json();
    int line = 0;
    for (const auto& row : rows) {
        headset.type(row.line + "\n"s);
        const Json::Value answer = headset.nextAnswer();
        EXPECT_EQ(answer["answer"], ++line);
        EXPECT_EQ(answer["ok"], *row.mistake == '\0') << toLine(answer);
        EXPECT_EQ(answer["error"]["message"].asString(), row.mistake) << toLine(answer);
    }
    headset.endInput();
    EXPECT_EQ(headset.finish(), 2);
    EXPECT_EQ(headset.happened(),
              (std::vector{R"({"playing":"title outer"})"s, R"({"title":"outer"})"s,
                           R"({"playing":"title outer"})"s, R"({"title":"outer"})"s}));
}

TEST(DialogueTest, namesAreThoseOfTheHeadsetWhateverFailedOrCameBack) {
    LedProgram headset = json();
    headset.type(
            "repeat 1\nstart a\ndisplay add 2\nexpect focus a both within=0\nstart b\nend\n"
            "start b\nfront a display=2\nkill servicemanager\nstart c\nrestart servicemanager\n"
            "front a\nrepeat 2\nstart d\nend\nstart d\n");
    for (const bool isOk : {true, true, true, true, true, false, true, true, true, false, true,
                            true, true, true, false, true}) {
        const Json::Value answer = headset.nextAnswer();
        EXPECT_EQ(answer["ok"], isOk) << toLine(answer);
    }
}

TEST(DialogueTest, whatGoesWrongIsAnsweredByItsKindAndTheNextLineIsTaken) {
    LedProgram headset = json();
    headset.type("front game\n");
    Json::Value error = headset.nextAnswer()["error"];
    EXPECT_EQ(error["kind"], "mistake");
    EXPECT_EQ(error["message"], "no app 'game' was started");
    EXPECT_EQ(error["column"], 7);
    EXPECT_EQ(error["usage"], "front APP [display=DISPLAY]");

    headset.type("start game\nexpect focus game both within=0\n");
    EXPECT_EQ(headset.nextAnswer()["ok"], true);
    error = headset.nextAnswer()["error"];
    EXPECT_EQ(error["kind"], "expectation");
    EXPECT_EQ(error["expected"], "focus of game: both");
    EXPECT_THAT(error["got"].asString(), Not(""));
    EXPECT_THAT(toLine(error["events"]), HasSubstr("game starts"));

    headset.type("expect no heard game\nhelp front back\nsave /no/such/folder/file\n");
    EXPECT_EQ(headset.nextAnswer()["error"]["kind"], "failure");
    EXPECT_EQ(headset.nextAnswer()["ok"], true);
    EXPECT_EQ(headset.nextAnswer()["error"]["message"],
              "/no/such/folder/file: No such file or directory");
    headset.type("crash game\nstart game\nquit\n");
    for (int line = 7; line <= 9; ++line) {
        const Json::Value answer = headset.nextAnswer();
        EXPECT_EQ(answer["answer"], line);
        EXPECT_EQ(answer["ok"], true) << toLine(answer);
    }
    EXPECT_EQ(headset.finish(), 1);
    expectNothingLeft(headset);
}

TEST(DialogueTest, whatIsNoTextIsAMistakeAndTheNextLineIsTaken) {
    const struct {
        std::string line;
        std::string message;
    } rows[] = {
            {std::string(5'000'000, 'x'), "this line is longer than 4096 bytes"},
            {"title \xFF\xFE", "this is not UTF-8 text"},
            {"a\0b"s, "a control character"},
            {"\x1B[A", "a control character"},
            {"title \"x", "this quote is not closed"},
    };
    for (const auto& row : rows) {
        LedProgram headset = json();
        std::thread writer([&] { headset.type(row.line + "\ntitle good\n"); });
        EXPECT_EQ(headset.nextAnswer()["error"]["message"], row.message);
        const Json::Value next = headset.nextAnswer();
        writer.join();
        EXPECT_EQ(next["answer"], 2);
        EXPECT_EQ(next["ok"], true);
        headset.endInput();
        EXPECT_EQ(headset.finish(), 2) << "mistakes, and nothing worse";
    }
}

TEST(DialogueTest, theLastLineNeedsNoEndAndTheFirstMayHaveAByteOrderMark) {
    LedProgram headset = json();
    headset.type("\xEF\xBB\xBFtitle one\ntitle two");
    headset.endInput();
    EXPECT_EQ(headset.nextAnswer()["command"], "title one");
    EXPECT_EQ(headset.nextAnswer()["answer"], 2);
    EXPECT_EQ(headset.finish(), 0);
}

TEST(DialogueTest, aReaderThatGoesAwayEndsTheSession) {
    for (const char* const last : {"", "repeat 100000\nfront game\nback game\nend\n"}) {
        LedProgram headset = json();
        headset.type("start game\n"s + last);
        ASSERT_TRUE(headset.prints(*last == '\0' ? R"("answer":1)" : "playing")) << headset.text();
        headset.stopReading();
        EXPECT_EQ(headset.finish(), 128 + SIGPIPE);
        expectNothingLeft(headset);
    }
}

TEST(DialogueTest, aSignalEndsTheSessionAtAnyMoment) {
    const struct {
        const char* what;
        std::string typed;
        std::string awaited;
        bool isBooting;
    } rows[] = {
            {"before anything runs", "title x\n", "answer", false},
            {"while it boots", "start game\n", "", true},
            {"idle", "start game\n", R"("answer":1)", false},
            {"waiting", "start game\nrepeat 1\nexpect focus game gone within=60\nend\n",
             R"("playing":"expect)", false},
    };
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::to_string(number) + " " + row.what);
            LedProgram headset = json();
            headset.type(row.typed);
            if (row.isBooting) {
                ASSERT_TRUE(headset.beginsToBoot());
            } else {
                ASSERT_TRUE(headset.prints(row.awaited)) << headset.text();
            }
            headset.signal(number);
            EXPECT_EQ(headset.finish(), 128 + number);
            expectNothingLeft(headset);
        }
    }
}

/** A shell's line, with the headset as $H. */
std::unique_ptr<RunningProgram> inShell(const std::string& script, const TemporaryDir& temp) {
    Launch launch;
    launch.program = "/bin/sh";
    launch.environment = {{"TMPDIR", temp.path}};
    launch.arguments = {"sh", "-c", "H='" + std::string(PROGRAMS) + "/headset'; " + script};
    return std::make_unique<RunningProgram>(launch);
}

TEST(DialogueTest, withoutATerminalCommandsAreReadAndAnswersAreText) {
    TemporaryDir temp;
    const struct {
        std::string script;
        int status;
        std::string text;
    } rows[] = {
            {"printf 'start game\\nlist\\n' | $H", 0, "immersive none"},
            {"echo help | $H --stdin", 0, "front APP [display=DISPLAY]"},
            {"printf 'start game\\nfrnt game\\n' | $H", 2,
             "stdin:2: there is no command 'frnt'; did you mean 'front'?"},
            {"printf 'start game\\nexpect focus game both within=0\\nfrnt' | $H", 1, "not as "},
            {"$H < /dev/null", 0, ""},
            {"$H <&-", 0, ""},
            {"{ echo 'title x' | $H --stdin --json > /dev/full; } 2>&1", 1,
             "the standard output cannot be written: No space left on device"},
            {"{ echo 'title x' | $H > /dev/full; } 2>&1", 1, "could not be written"},
            {"echo 'start game' | BINDER_DRIVER=/dev/null $H", 1, "/dev/null is no binder device"},
            {"echo 'start game' | BINDER_DRIVER=/dev/null $H --stdin --json", 1,
             R"("message":"/dev/null is no binder device)"},
    };
    for (const auto& row : rows) {
        const auto run = inShell(row.script, temp);
        EXPECT_EQ(run->finish(), row.status) << row.script << run->text();
        EXPECT_THAT(run->text(), HasSubstr(row.text)) << row.script;
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(temp.path), {}), 0);
}

TEST(DialogueTest, aScenarioPlayedIntoAPipeThatClosesLeavesNothing) {
    TemporaryDir temp;
    TemporaryFile file;
    std::ofstream(file.path) << "start game\nrepeat 100000\nfront game\nback game\nend\n";
    const auto run = inShell(
            "{ $H run " + std::string(file.path) + "; echo status $? >&2; } | head -n 5", temp);
    EXPECT_EQ(run->finish(), 0);
    EXPECT_THAT(run->text(), HasSubstr("status 141"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(temp.path), {}), 0);
}

}  // namespace
}  // namespace sim
