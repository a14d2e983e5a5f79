// SPDX-License-Identifier: Apache-2.0
// A headset that a person leads: keys on a terminal, what is shown, and the end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "LedProgram.h"

namespace sim {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kPrompt = "headset> ";
constexpr const char* kBlockPrompt = "...> ";
constexpr const char* kInterrupt = "\x03";
constexpr const char* kEnd = "\x04";

std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

class PromptTest : public testing::Test {
protected:
    /** Waits for the prompt, types a line and waits for what it brings. */
    void lead(const std::string& typed, const std::string& shown, const char* prompt = kPrompt) {
        ASSERT_TRUE(mHeadset.prints(prompt)) << mHeadset.text();
        mHeadset.type(typed);
        ASSERT_TRUE(mHeadset.prints(shown)) << typed << "\n" << mHeadset.text();
    }

    void leave() {
        ASSERT_TRUE(mHeadset.prints(kPrompt)) << mHeadset.text();
        mHeadset.type(kEnd);
        EXPECT_EQ(mHeadset.finish(), 0);
        EXPECT_EQ(mHeadset.leftovers(), 0u);
    }

    LedProgram mHeadset{LedProgram::Through::Terminal, {}};
};

TEST_F(PromptTest, aPersonBreaksAServiceAndSeesTheDaemonRecover) {
    lead("start game permissions=read-focus\n", "game starts (pid ");
    lead("front game\n", "game is in the foreground");
    lead("report game visible\n", "visible: ok");
    lead("expect focus game both\n", "\n");
    lead("kill activity\n", "activity is killed");
    lead("list\n", "immersive none, top none");
    lead("restart activity\n", "vrfocus has registered its observer");
    lead("wait until immersive game\n", "\n");
    lead("list\n", "immersive game, top game");
    leave();
}

TEST_F(PromptTest, mistakesAndWhatDoesNotHoldAreToldAndThePromptGoesOn) {
    lead("frnt\n", "there is no command 'frnt'; did you mean 'front'?");
    lead("front\n", "usage: front APP [display=DISPLAY]");
    lead("start game\n", "game starts");
    lead("expect focus game both within=0\n", "expected  focus of game: both");
    lead("report game visible status=security\n", "got       status ok");
    leave();
}

TEST_F(PromptTest, theInterruptKeyEndsWhatIsWaitedForAndClearsTheLine) {
    lead("start game\n", "game starts");
    // Before the line has been taken the key would clear it.
    lead("expect focus game gone within=60\n", "within=60\r\n");
    mHeadset.type(kInterrupt);
    ASSERT_TRUE(mHeadset.prints("interrupted")) << mHeadset.text();
    lead("nonsense", "nonsense");
    mHeadset.type(kInterrupt);
    lead("repeat 2\n", "\n");
    lead("start other\n", "\n", kBlockPrompt);
    lead("repeat x\n", "no whole number", kBlockPrompt);
    lead("repeat 1\n", "\n", kBlockPrompt);
    lead("end\n", "\n", kBlockPrompt);
    lead(kInterrupt, "^C", kBlockPrompt);
    lead("start other\n", "other starts");
    lead("expect focus game none\n", "\n");
    lead("list\n", "immersive none");
    leave();
    EXPECT_THAT(mHeadset.text(), Not(HasSubstr("no command 'nonsense'")));
}

TEST_F(PromptTest, keysTypedWhileACommandRunsAreTakenAfterItTheEndKeyToo) {
    lead("start game\n", "game starts");
    lead("repeat 1\n", "\n");
    lead("title begun\n", "\n", kBlockPrompt);
    lead("expect ended activity within=60\n", "\n", kBlockPrompt);
    lead("end\n", "begun\r\n", kBlockPrompt);
    mHeadset.type(std::string("title ahead\n") + kEnd);
    ASSERT_TRUE(mHeadset.prints("title ahead\r\n")) << "shown where it is typed";
    mHeadset.killChild("activity");
    EXPECT_EQ(mHeadset.finish(), 0);
    EXPECT_THAT(mHeadset.text(), HasSubstr("\r\nahead\r\n"));
    EXPECT_EQ(mHeadset.leftovers(), 0u);
}

TEST_F(PromptTest, aBootThatIsInterruptedCanBeTriedAgain) {
    ASSERT_TRUE(mHeadset.prints(kPrompt));
    mHeadset.type("start game\n");
    ASSERT_TRUE(mHeadset.beginsToBoot());
    mHeadset.type(kInterrupt);
    lead("start other\n", "other starts");
    leave();
}

TEST_F(PromptTest, theTabulatorCompletesVerbsNamesAndOptions) {
    lead("sta\tgame uid=10061 proc\tcom.orbit.racer\n", "game starts");
    lead("fro\tg\t\n", "in the foreground");
    lead("expect fo\t\t", "foreground");
    ASSERT_TRUE(mHeadset.prints(kPrompt)) << "shown again below the choices";
    mHeadset.type("cus game both\n");
    lead("list\n", "top com.orbit.racer");
    leave();
}

TEST_F(PromptTest, blocksAreTypedLineByLineAndWhatWasDoneIsSavedAsAScenario) {
    const std::string path = mHeadset.folder() + "/mine.scenario";
    lead("start game\n", "game starts");
    lead("repeat 2\n", "\n");
    lead("front game\n", "\n", kBlockPrompt);
    lead("back game\n", "\n", kBlockPrompt);
    lead("end\n", "has left the foreground", kBlockPrompt);
    lead("expect focus game both within=0\n", "not as expected");
    lead("repeat 2\n", "\n");
    lead("report game visible  # it may\n", "\n", kBlockPrompt);
    lead("ask game top status=ok\n", "\n", kBlockPrompt);
    lead("end\n", "got       status security", kBlockPrompt);
    lead("report game stopping for=game status=dead\n", "got       status ok");
    lead("save " + path + "\n", "\n");
    lead("save " + path + "\n", "File exists");
    ASSERT_TRUE(mHeadset.prints(kPrompt));
    EXPECT_EQ(contentOf(path),
              "start game\nrepeat 2\n    front game\n    back game\nend\n"
              "report game visible  # it may\nask game top status=security\n"
              "report game stopping for=game status=ok\n");
    std::filesystem::remove(path);
    mHeadset.type("quit\n");
    EXPECT_EQ(mHeadset.finish(), 0);
    EXPECT_EQ(mHeadset.leftovers(), 0u);
}

TEST_F(PromptTest, whatEndsWhileALineIsTypedIsShownAboveIt) {
    lead("start game\n", "game starts");
    lead("front game\n", "game is in the foreground");
    lead("expect focus ", "expect focus");
    mHeadset.killChild("game");
    ASSERT_TRUE(mHeadset.prints("game has ended (signal 9)")) << mHeadset.text();
    ASSERT_TRUE(mHeadset.prints("activity: game has died")) << mHeadset.text();
    ASSERT_TRUE(mHeadset.prints("headset> expect focus")) << mHeadset.text();
    mHeadset.type("game gone\n");
    lead("front game\n", "'game' has ended by then");
    ASSERT_TRUE(mHeadset.prints(kPrompt));
    mHeadset.killChild("vrfocus");
    ASSERT_TRUE(mHeadset.prints("vrfocus (pid ")) << mHeadset.text();
    ASSERT_TRUE(mHeadset.prints(") has ended (signal 9)")) << mHeadset.text();
    lead("list\n", "immersive (dead)");
    lead("restart vrfocus\n", "\n");
    lead("list\n", "immersive none");
    leave();
}

TEST_F(PromptTest, promptsBesideEachOtherKeepTheLinesOfAll) {
    LedProgram other(LedProgram::Through::Terminal, {}, std::string(PROGRAMS) + "/headset",
                     mHeadset.stateFolder());
    ASSERT_TRUE(other.prints(kPrompt));
    lead("title \"the first\"\n", "the first\r\n");
    other.type("title second\n");
    ASSERT_TRUE(other.prints("second\r\n"));
    ASSERT_TRUE(other.prints(kPrompt));
    lead("title third\n", "third\r\n");
    ASSERT_TRUE(mHeadset.prints(kPrompt));
    EXPECT_EQ(contentOf(mHeadset.historyFile()),
              "_HiStOrY_V2_\ntitle\\040\"the\\040first\"\ntitle\\040second\ntitle\\040third\n");
}

TEST_F(PromptTest, linesAreKeptInTheHistoryAndComeBackWithTheArrowKey) {
    lead("title first\n", "first");
    lead("  title second  \n", "second");
    lead("\x10\x10\n", "first");
    ASSERT_TRUE(mHeadset.prints(kPrompt));
    EXPECT_THAT(contentOf(mHeadset.historyFile()), HasSubstr("title\\040second\n"));
    mHeadset.type("quit\n");
    EXPECT_EQ(mHeadset.finish(), 0);
}

TEST_F(PromptTest, helpComesFromTheLanguage) {
    lead("help\n", "expect focus KNOWN FOCUS");
    lead("help expect focus\n", "example: expect focus game both");
    lead("help nothing\n", "there is no command 'nothing'");
    leave();
}

TEST_F(PromptTest, signalsAndALostTerminalEndTheSession) {
    const struct {
        int number;
        const char* typed;
        const char* awaited;
        const char* typedLast = "";
    } rows[] = {{SIGTERM, "", "headset> "},
                {SIGTERM, "start game\n", "game starts"},
                {SIGHUP, "start game\nexpect focus game gone within=60\n", "within=60"},
                // What is written finds no room from then on.
                {SIGTERM, "title x\n", "headset> ", "\x13help\n"},
                {SIGHUP, "start game\n", "game starts", "\x13list\n"}};
    for (const auto& row : rows) {
        LedProgram headset(LedProgram::Through::Terminal, {});
        ASSERT_TRUE(*row.typed == '\0' || headset.prints(kPrompt));
        headset.type(row.typed);
        ASSERT_TRUE(headset.prints(row.awaited)) << headset.text();
        headset.type(row.typedLast);
        headset.signal(row.number);
        EXPECT_EQ(headset.finish(), 128 + row.number) << headset.text();
        EXPECT_EQ(headset.leftovers(), 0u);
    }
    lead("start game\n", "game starts");
    mHeadset.endInput();
    mHeadset.stopReading();
    EXPECT_EQ(mHeadset.finish(), 128 + SIGHUP);
    EXPECT_EQ(mHeadset.leftovers(), 0u);
}

TEST(PromptStartTest, aHeadsetThatCannotBootEndsThePrompt) {
    TemporaryDir programs;
    std::filesystem::copy_file(std::filesystem::path(PROGRAMS) / "headset",
                               std::filesystem::path(programs.path) / "headset");
    LedProgram headset(LedProgram::Through::Terminal, {}, std::string(programs.path) + "/headset");
    ASSERT_TRUE(headset.prints(kPrompt));
    headset.type("start game\n");
    EXPECT_TRUE(headset.prints("missing in " + std::string(programs.path) + ": binderhub"));
    EXPECT_EQ(headset.finish(), 1);
}

}  // namespace
}  // namespace sim
