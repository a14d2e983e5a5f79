// SPDX-License-Identifier: Apache-2.0
// A trial with real processes: what it plays, what it finds, and how that reads as a scenario.
#include "Trial.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Expectation.h"
#include "Report.h"
#include "Silence.h"
#include "TestDevice.h"
#include "scenario/DumpPath.h"
#include "scenario/RandomCommands.h"

namespace oracle {
namespace {

sim::Headset::Options options() {
    sim::Headset::Options options;
    options.stack.programs = PROGRAMS;
    options.stack.device = binderhost::tests::testDevice();
    return options;
}

Json::Value parsed(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(sim::scenario::parseJson(text, &value)) << text;
    return value;
}

TEST(TrialTest, DaemonAndOracleAgreeAfterEveryRandomCommand) {
    // On the hub oracle_runner plays as many as here on a device.
    const int stretches = binderhost::tests::onDevice() ? 8 : 1;
    const int length = binderhost::tests::onDevice() ? 250 : 60;
    for (int seed = 0; seed < stretches; ++seed) {
        sim::scenario::RandomStart start;
        start.canReusePids = true;
        start.hasHub = !binderhost::tests::onDevice();
        sim::scenario::RandomCommands commands(static_cast<uint64_t>(seed), start);
        Trial trial(options());
        for (int count = 0; count < length; ++count) {
            const std::string line = commands.next();
            ASSERT_TRUE(trial.play(line) && trial.askEverything())
                    << "seed " << seed << ", command " << count << ", " << line << ": "
                    << trial.finding()->text;
        }
        EXPECT_GT(trial.compared(), length) << "seed " << seed;
    }
}

TEST(TrialTest, QuestionsAreAnsweredAlsoIfThePermissionsAreGoneFromTheFirstCommandOn) {
    Trial trial(options());
    EXPECT_TRUE(trial.play("kill permission"));
    EXPECT_TRUE(trial.askEverything());
    EXPECT_GT(trial.compared(), 6);
}

TEST(TrialTest, WhatGoesWrongIsAFindingAndEndsTheTrial) {
    struct Case {
        const char* line;
        Finding::Kind kind;
        const char* text;
    };
    for (const Case& each :
         {Case{"crash nobody", Finding::Kind::Illegal, "nobody"},
          {"report game visible status=security", Finding::Kind::Failure, "status security"},
          {"expect focus game both within=0", Finding::Kind::Failure, "got none"}}) {
        Trial trial(options());
        ASSERT_TRUE(trial.play("start game"));
        ASSERT_TRUE(trial.askEverything());
        EXPECT_FALSE(trial.play(each.line)) << each.line;
        ASSERT_TRUE(trial.finding().has_value());
        EXPECT_EQ(trial.finding()->kind, each.kind) << each.line;
        EXPECT_THAT(trial.finding()->text, testing::HasSubstr(each.text));
        EXPECT_FALSE(trial.play("start other"));
    }
}

TEST(TrialTest, WhatWasFoundIsWrittenWithTheCommandsThatShowItAndNoOthers) {
    const Lines many{"property ro.debuggable 1",
                     "start com.velmar.shellenv uid=10050 permissions=grant-tracking",
                     "start game uid=10061",
                     "front game",
                     "start other uid=10062",
                     "window other",
                     "panel game on"};
    struct Case {
        Lines ending;
        Finding::Kind kind;
        const char* scenario;
    };
    for (const Case& each :
         {Case{{"kill display", "report game visible", "grant com.velmar.shellenv 2"},
               Finding::Kind::Crash,
               "# Seed 7: the daemon does not survive this.\n"
               "# vrfocus has ended by itself: signal 6\n"
               "start com.velmar.shellenv uid=10050 permissions=grant-tracking\n"
               "kill display\n"
               "grant com.velmar.shellenv 2\n"
               "expect running daemon\n"},
          {{"listen game top status=any", "report game visible", "ask game top"},
           Finding::Kind::Failure,
           "# Seed 7: a command that did not go as it says.\n"
           "# ask game top: expected status ok, got status security\n"
           "property ro.debuggable 1\n"
           "start game uid=10061\n"
           "listen game top status=any\n"
           "ask game top\n"}}) {
        Lines lines = many;
        lines.insert(lines.end(), each.ending.begin(), each.ending.end());
        std::optional<Finding> finding;
        {
            Trial trial(options());
            for (const std::string& line : lines)
                finding = trial.play(line) && trial.askEverything() ? finding : trial.finding();
        }
        ASSERT_TRUE(finding.has_value());
        EXPECT_EQ(finding->kind, each.kind);
        EXPECT_EQ(scenarioOf(*finding, lines, /*seed=*/7, options()), each.scenario);
    }
}

/** A dump with nothing in it, but for a member of its focus policy. */
Json::Value dumpWith(const std::string& member, const Json::Value& value) {
    Json::Value dump = parsed(R"({"focusPolicy": {"windowFocus": -1, "topActivityPackage": "",
        "renderingClients": [], "allClients": []}})");
    dump["focusPolicy"][member] = value;
    return dump;
}

Json::Value pids(int pid) {
    Json::Value array;
    array.append(pid);
    return array;
}

TEST(TrialTest, ADisagreementIsWrittenAsTheExpectationOfWhatIsDue) {
    Silence silence;
    sim::scenario::Player player(options(), silence);
    sim::scenario::LineReader reader("test");
    for (const char* line : {"start game", "start com.orbit.racer:late"}) {
        const auto result = reader.take(line);
        player.play(std::get<sim::scenario::Command>(result));
    }
    sim::Headset& headset = player.headset();
    const int game = headset.lastPidOf("game");
    const int late = headset.lastPidOf("com.orbit.racer:late");
    Oracle oracle;
    oracle.processStarted(game, /*uid=*/0, "game");
    const Json::Value none(Json::arrayValue);
    const Json::Value verdict =
            parsed(R"([{"pid": )" + std::to_string(game) + R"(, "hasFocus": true}])");
    const Json::Value app = parsed(R"({"package": "game", "pid": )" + std::to_string(game) + "}");
    Json::Value both;
    both.append(game);
    both.append(late);
    Json::Value other;
    other.append(late);
    other.append(game);
    struct Case {
        const char* question;
        Json::Value due;
        Json::Value got;
        const char* line;
    };
    for (const Case& each : {
                 Case{"getClientFocusStatus", verdict, none, "expect focus game both"},
                 {"getClientFocusStatus", none, verdict, "expect focus game both"},
                 {"getImmersiveApp", {}, app, "expect immersive none"},
                 {"getImmersiveApp", app, {}, "expect immersive game"},
                 {"getTopActivity", "", "com.b", "expect top none"},
                 {"getTopActivity", "com.a", "com.b", "expect top com.a"},
                 {"getForegroundApps", none, parsed(R"(["game"])"), "expect foreground none"},
                 {"getForegroundApps", parsed(R"(["com.orbit.racer:late", "game"])"), none,
                  "expect foreground com.orbit.racer:late game"},
                 {"getForegroundApps", parsed(R"(["renamed"])"), none,
                  "expect dump focusPolicy.renderingClients.# 1"},
                 {"missed", none, pids(game),
                  "dump json\nexpect no log "
                  "\"Failed to read UID for PID pid:game,\""},
                 {"missed", pids(0), none,
                  "dump json\nexpect log "
                  "\"Failed to read UID for PID 0,\""},
                 {"dump", dumpWith("windowFocus", game), dumpWith("windowFocus", -1),
                  "expect dump focusPolicy.windowFocus pid:game"},
                 {"dump", dumpWith("topActivityPackage", ""), dumpWith("topActivityPackage", "a"),
                  R"(expect dump focusPolicy.topActivityPackage "\"\"")"},
                 {"dump", dumpWith("renderingClients", both), dumpWith("renderingClients", none),
                  "expect dump focusPolicy.renderingClients.# 2"},
                 {"dump", dumpWith("renderingClients", both), dumpWith("renderingClients", other),
                  "expect dump focusPolicy.renderingClients [pid:game,pid:com.orbit.racer:late]"},
                 {"dump", dumpWith("allClients", parsed(R"([{"uid": 5, "currentFocus": [0]}])")),
                  dumpWith("allClients", parsed(R"([{"uid": 5, "currentFocus": [1]}])")),
                  "expect dump focusPolicy.allClients[0].currentFocus [0]"},
         }) {
        const Disagreement found{each.question, Json::objectValue, each.due, each.got, oracle};
        const std::string line = expectationFor(found, headset);
        EXPECT_EQ(line, each.line);
        const auto result = reader.take(line.substr(line.find('\n') + 1));
        EXPECT_TRUE(std::holds_alternative<sim::scenario::Command>(result)) << line;
        EXPECT_THAT(textOf(found, headset), testing::HasSubstr(":game"));
    }
}

}  // namespace
}  // namespace oracle
