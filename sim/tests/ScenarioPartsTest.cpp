// SPDX-License-Identifier: Apache-2.0
// Parts of the language, each as a table: patterns, completion, paths into the dump, what was
// heard.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scenario/Completion.h"
#include "scenario/DumpPath.h"
#include "scenario/Ears.h"
#include "scenario/Pattern.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ScenarioPartsTest, aPatternIsTakenApart) {
    const Pattern pattern("ask APP2 focus [KNOWN...] uid=UID [status=STATUS]");
    std::vector<std::string> slots;
    for (const Pattern::Slot& slot : pattern.slots()) {
        slots.push_back(slot.name + ":" + slot.kind + (slot.isOption ? " option" : "") +
                        (slot.isOptional ? " optional" : "") +
                        (slot.isRepeated ? " repeated" : ""));
    }
    EXPECT_THAT(slots, ElementsAre("ask:", "APP2:APP", "focus:", "KNOWN:KNOWN optional repeated",
                                   "uid:UID option", "status:STATUS option optional"));
    EXPECT_EQ(pattern.verb(), "ask");
    EXPECT_EQ(Pattern("expect no log TEXT").verb(), "expect no log");
}

TEST(ScenarioPartsTest, theCommandLineIsCompleted) {
    Scope scope;
    scope.start("game");
    scope.start("gone");
    scope.end("gone");
    const struct {
        std::string line;
        std::vector<std::string> words;
    } rows[] = {
            {"fro", {"front"}},
            {"re", {"rename", "repeat", "report", "restart", "resume", "reuse", "revoke"}},
            {"wait ", {"until"}},
            {"front ", {"game"}},
            {"front game ", {"display="}},
            {"quietly front g", {"game"}},
            {"expect focus g", {"game", "gone"}},
            {"expect focus game ", {"both", "gone", "head", "input", "none"}},
            {"wait until focus game b", {"both"}},
            {"report game ", {"stopping", "visible"}},
            {"report game visible for=g", {"for=game", "for=gone"}},
            {"report game visible for=game f", {}},
            {"start x permissions=dump,read", {"permissions=dump,read-focus"}},
            {"ask game focus head game g", {"game", "gone"}},
            {"start x ui", {"uid="}},
            {"front game display=2 ", {}},
            {"front dis", {"display="}},
            {"display ", {"add", "remove"}},
            {"front nobody ", {}},
            {"nonsense ", {}},
            {"title \"front ", {}},
            {"help expect f", {"focus", "foreground"}},
    };
    for (const auto& row : rows) {
        const Completion found = complete(row.line, scope);
        EXPECT_EQ(found.words, row.words) << row.line;
        if (row.words.empty()) continue;
        EXPECT_EQ(found.typed, row.line.size() - row.line.find_last_of(' ') - 1) << row.line;
    }
}

TEST(ScenarioPartsTest, pathsLeadIntoTheDump) {
    Headset::Options options;
    options.stack.programs = PROGRAMS;
    const Headset headset(options);
    Json::Value root;
    ASSERT_TRUE(parseJson(R"({"a":{"b":[1,{"c":"x"},{"c":"y"}],"d.e":2},"n":null})", &root));
    const struct {
        std::string path;
        std::string found;
    } rows[] = {
            {"a.b[0]", "[1]"},
            {"a.b[1].c", "[\"x\"]"},
            {"a.b[*].c", "[\"x\",\"y\"]"},
            {"a.b.#", "[3]"},
            {"a.b[3]", "[]"},
            {"a.x", "[]"},
            {"a.b[-1]", "[]"},
            {"a.b.c", "[]"},
            {"a[0]", "[]"},
            {"n", "[null]"},
            {"a.b[1]", "[{\"c\":\"x\"}]"},
    };
    for (const auto& row : rows) {
        Json::Value found(Json::arrayValue);
        for (const Json::Value& value : valuesAt(headset, root, row.path))
            found.append(value);
        EXPECT_EQ(toLine(found), row.found) << row.path;
    }
    for (const char* const path : {"a[0", "a..b", "a."})
        EXPECT_THROW(static_cast<void>(valuesAt(headset, root, path)), SessionError) << path;
    EXPECT_EQ(valueIn(headset, "3"), 3);
    EXPECT_EQ(valueIn(headset, "true"), true);
    const std::string deep(4000, '[');
    EXPECT_EQ(valueIn(headset, deep), deep);
    EXPECT_THROW(static_cast<void>(valueIn(headset, "pid:nobody")), SessionError);
    EXPECT_EQ(valueIn(headset, "com.orbit.racer"), "com.orbit.racer");
}

/** Two focus callbacks and one of the top activity between them. */
Ears earsWithThree() {
    Json::Value heard;
    EXPECT_TRUE(parseJson(R"({"dropped":0,"heard":[{"focus":0},
            {"app":{"package":"com.i"},"top":"com.t"},{"focus":1}]})",
                          &heard));
    Ears ears;
    EXPECT_THAT(ears.take("shell", heard), ElementsAre("head", "top:com.t:com.i", "input"));
    return ears;
}

TEST(ScenarioPartsTest, whatWasHeardIsPassedInOrder) {
    const struct {
        std::vector<std::string> due;
        bool exactly;
        bool isHeard;
    } rows[] = {
            {{"head"}, false, true},
            {{"top"}, false, true},
            {{"top:com.t"}, false, true},
            {{"top:com"}, false, false},
            {{"top:com.t:com.i"}, false, true},
            {{"head", "top", "input"}, true, true},
            {{"head", "head"}, false, false},
            {{"head"}, true, true},
            {{"input", "input"}, true, false},
    };
    for (const auto& row : rows) {
        Ears ears = earsWithThree();
        EXPECT_EQ(ears.passIfHeard("shell", row.due, row.exactly), row.isHeard) << row.due.front();
        EXPECT_FALSE(ears.passIfHeard("nobody", row.due, row.exactly));
    }
    Ears ears = earsWithThree();
    EXPECT_TRUE(ears.passIfHeard("shell", {"head", "top", "input"}, /*exactly=*/false));
    EXPECT_THAT(ears.fresh("shell"), IsEmpty());
    EXPECT_FALSE(ears.passIfHeard("shell", {"head"}, /*exactly=*/false));
}

}  // namespace
}  // namespace sim::scenario
