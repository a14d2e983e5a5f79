// SPDX-License-Identifier: Apache-2.0
// Random commands: the same for the same seed, of every kind, and legal where they stand.
#include "scenario/RandomCommands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <variant>

#include "scenario/Script.h"

namespace sim::scenario {
namespace {

using testing::IsEmpty;

using Words = std::vector<std::string>;

Words linesOf(RandomCommands& commands, int count) {
    Words lines;
    for (int line = 0; line < count; ++line)
        lines.push_back(commands.next());
    return lines;
}

Words linesOf(uint64_t seed, int count) {
    RandomStart start;
    start.canReusePids = true;
    start.hasHub = true;
    RandomCommands commands(seed, start);
    return linesOf(commands, count);
}

Words wordsOf(const std::string& line) {
    std::istringstream text(line);
    return {std::istream_iterator<std::string>(text), {}};
}

/** Follows lines with a model of its own; each complaint is a line that is not legal. */
class Follower {
public:
    void take(const std::string& line) {
        mLine = line;
        Words words = wordsOf(line);
        const bool isQuiet = words[0] == "quietly";
        if (isQuiet) words.erase(words.begin());
        mVerbs.insert((isQuiet ? "quietly " : "") + words[0]);
        follow(words);
        mMostRunning = std::max(mMostRunning, mRunning.size());
        for (auto& [process, lines] : mAway)
            check(++lines < 30, "away for long");
    }

    [[nodiscard]] const Words& complaints() const { return mComplaints; }
    [[nodiscard]] const std::set<std::string>& verbs() const { return mVerbs; }
    [[nodiscard]] size_t mostRunning() const { return mMostRunning; }

private:
    void follow(const Words& words) {
        const std::string& verb = words[0];
        static const std::set<std::string> kCalls{"report",   "ask",   "listen",
                                                  "unlisten", "grant", "revoke"};
        static const std::set<std::string> kActive{"stop", "hang", "rename"};
        static const std::set<std::string> kEnds{"stop", "crash", "kill"};
        if (verb == "start" || verb == "native") return begin(words[1]);
        if (verb == "display") return changeDisplays(words);
        static const std::set<std::string> kGround{"hub", "servicemanager"};
        if (kGround.contains(words[1]) && (verb == "kill" || verb == "restart"))
            return changeGround(words);
        check(!mIsGroundAway, "nobody is there");
        if (verb == "fault") return checkFault(words);
        if (verb == "restart" || (verb == "kill" && !mRunning.contains(words[1])))
            return changeAway(words);
        if (verb == "notice") return checkNotice(words);
        if (verb == "wait") return awaitService(words);
        if (verb == "reuse") {
            check(!mHung.contains(words[1]), "hangs");
            end(words[1]);
            return begin(words[2]);
        }
        if (verb == "window" && words[1] == "none") return;
        static const std::set<std::string> kOthers{"install", "allow", "deny", "property", "say"};
        if (kOthers.contains(verb)) return;
        check(mRunning.contains(words[1]), "does not run");
        if (verb == "hang") check(!mAway.contains("vrfocus"), "it would not find the new one");
        if (kCalls.contains(verb)) check(!mAway.contains("vrfocus"), "nobody to call");
        if (kCalls.contains(verb) || kActive.contains(verb))
            check(!mHung.contains(words[1]), "hangs");
        if (verb == "grant" || verb == "revoke")
            check(words[2] == "0" || !mIsDisplayLost, "the daemon may end");
        if (verb == "resume") check(mHung.erase(words[1]) == 1, "hangs not");
        if (verb == "hang") mHung.insert(words[1]);
        if (verb == "front" || verb == "back") checkActivity(words);
        if (kEnds.contains(verb)) end(words[1]);
    }

    void begin(const std::string& name) { check(mRunning.insert(name).second, "runs already"); }

    void end(const std::string& name) {
        check(mRunning.erase(name) == 1, "does not run");
        mHung.erase(name);
        for (auto& [display, names] : mDisplays)
            names.erase(name);
    }

    void changeDisplays(const Words& words) {
        const int display = std::stoi(words[2]);
        check(display != 0, "the main display stays");
        if (words[1] == "add") {
            check(mDisplays.try_emplace(display).second, "is there already");
        } else {
            check(mDisplays.erase(display) == 1, "is not there");
        }
    }

    void changeAway(const Words& words) {
        static const std::set<std::string> kProcesses{
                "activity",       "display",       "permission", "VelmarWindowManager",
                "package_native", "vrfocushelper", "vrfocus"};
        check(kProcesses.contains(words[1]), "no such process");
        if (words[1] == "display") mIsDisplayLost = mIsDisplayLost || !mAway.contains("vrfocus");
        if (words[1] == "vrfocus") check(mHung.empty(), "somebody would not find the new one");
        if (words[1] == "vrfocus") mIsDisplayLost = mAway.contains("display");
        if (words[0] == "kill") {
            check(mAway.try_emplace(words[1], 0).second, "is away already");
        } else {
            check(mAway.erase(words[1]) == 1, "runs already");
        }
    }

    void changeGround(const Words& words) {
        check(words[0] == "restart" || !mIsGroundAway, "is away already");
        mIsGroundAway = words[0] == "kill";
        mHung.clear();
        mAway.clear();
        mIsDisplayLost = true;
    }

    void checkFault(const Words& words) {
        check(!mAway.contains(words[1]), "nobody to have it");
        if (words[1] == "display" && words[2] == "notices") check(words[3] == "drop", "uncertain");
        if (words[2] == "error") check(words[3] != "registerProcessObserver", "never found again");
    }

    void awaitService(const Words& words) {
        check(words[2] == "connected" && words.size() == 4, "nothing to wait for");
        check(!mAway.contains(words[3]) && !mAway.contains("vrfocus"), "it never will be");
        if (words[3] == "display") mIsDisplayLost = false;
    }

    void checkNotice(const Words& words) {
        const std::string sender = words[1] == "display"  ? "display"
                                   : words[1] == "window" ? "VelmarWindowManager"
                                                          : "activity";
        check(!mAway.contains(sender), "nobody to send it");
    }

    void checkActivity(const Words& words) {
        const int display =
                words.size() > 2 ? std::stoi(words[2].substr(words[2].find('=') + 1)) : 0;
        check(mDisplays.contains(display), "no such display");
        if (words[0] == "front") {
            mDisplays[display].insert(words[1]);
        } else {
            check(mDisplays[display].erase(words[1]) == 1, "is not there");
        }
    }

    void check(bool isLegal, const std::string& complaint) {
        if (!isLegal) mComplaints.push_back(mLine + ": " + complaint);
    }

    std::string mLine;
    Words mComplaints;
    std::set<std::string> mVerbs;
    std::set<std::string> mRunning;
    std::set<std::string> mHung;
    std::map<int, std::set<std::string>> mDisplays{{0, {}}};
    std::map<std::string, int> mAway;
    bool mIsDisplayLost = false;  // until the daemon has found it
    bool mIsGroundAway = false;
    size_t mMostRunning = 0;
};

TEST(RandomCommandsTest, TheSameSeedGivesTheSameLinesAndAnotherSeedOthers) {
    EXPECT_EQ(linesOf(7, 2000), linesOf(7, 2000));
    EXPECT_NE(linesOf(7, 20), linesOf(8, 20));
}

TEST(RandomCommandsTest, EveryLineIsLegalWhereItStands) {
    for (uint64_t seed = 0; seed < 40; ++seed) {
        Follower follower;
        for (const std::string& line : linesOf(seed, 2500))
            follower.take(line);
        ASSERT_THAT(follower.complaints(), IsEmpty()) << "seed " << seed;
        EXPECT_GE(follower.mostRunning(), 6) << "seed " << seed;
        EXPECT_LE(follower.mostRunning(), 10) << "seed " << seed;
    }
}

TEST(RandomCommandsTest, TheLanguageTakesEveryLine) {
    for (uint64_t seed = 0; seed < 8; ++seed) {
        LineReader reader("random");
        for (const std::string& line : linesOf(seed, 2500)) {
            const LineReader::Result result = reader.take(line);
            const auto* mistake = std::get_if<Mistake>(&result);
            ASSERT_EQ(mistake, nullptr) << line << ": " << mistake->message << ", seed " << seed;
        }
    }
}

TEST(RandomCommandsTest, AllKindsComeUpInAThousandLines) {
    for (uint64_t seed = 0; seed < 8; ++seed) {
        Follower follower;
        for (const std::string& line : linesOf(seed, 1000))
            follower.take(line);
        for (const char* verb :
             {"start",  "native",         "stop",    "crash",    "kill",          "hang",
              "resume", "rename",         "report",  "ask",      "listen",        "unlisten",
              "grant",  "revoke",         "allow",   "deny",     "front",         "back",
              "window", "panel",          "display", "property", "quietly front", "quietly panel",
              "fault",  "quietly window", "notice",  "say",      "restart"})
            EXPECT_TRUE(follower.verbs().contains(verb)) << verb << ", seed " << seed;
    }
}

TEST(RandomCommandsTest, EverybodyOfTheCastAppearsAndCallsAreAnsweredInEveryWay) {
    std::set<std::string> missing{"status=security",
                                  "status=illegal-argument",
                                  "status=any",
                                  "reuse",
                                  "install",
                                  "ro.debuggable",
                                  "hub",
                                  "servicemanager",
                                  "error",
                                  "drop",
                                  "double",
                                  "reorder"};
    for (const Role& role : randomCast())
        missing.insert(role.name);
    for (uint64_t seed = 0; seed < 4; ++seed) {
        for (const std::string& line : linesOf(seed, 3000)) {
            for (const std::string& word : wordsOf(line))
                missing.erase(word);
        }
    }
    EXPECT_THAT(missing, IsEmpty());
}

TEST(RandomCommandsTest, DisplaysAreGrantedAgainOnceTheDisplayManagerIsFoundAgain) {
    for (const bool canAwait : {true, false}) {
        RandomStart start;
        start.canAwait = canAwait;
        RandomCommands commands(/*seed=*/4, start);
        int returns = 0;
        bool hasReturned = false;  // to the daemon that has missed it
        bool isGranted = false;
        for (const std::string& line : linesOf(commands, 4000)) {
            const Words words = wordsOf(line);
            if (line == "kill vrfocus" || line == "kill display") hasReturned = false;
            if (line == "restart display") hasReturned = ++returns > 0;
            if (line == "restart vrfocus") hasReturned = false;
            const bool isOther = words[0] == "grant" && words[2] != "0";
            isGranted = isGranted || (isOther && hasReturned);
        }
        EXPECT_GT(returns, 0);
        EXPECT_EQ(isGranted, canAwait);
    }
}

TEST(RandomCommandsTest, PidsAreNotReusedUnlessTheyCanBe) {
    RandomCommands commands(/*seed=*/3);
    for (const std::string& line : linesOf(commands, 5000))
        EXPECT_NE(wordsOf(line)[0], "reuse");
}

TEST(RandomCommandsTest, WhatIsThereAtTheStartIsTakenUp) {
    RandomStart start;
    start.apps["mine"] = {10999, "com.mine", /*runs=*/true, /*isHung=*/false, /*isNative=*/false};
    start.apps["com.orbit.racer"] = {10998, "com.orbit.racer", /*runs=*/false};
    start.packages["com.mine"] = 10999;
    start.packages["com.pulse.coach"] = 10997;
    start.activities[0] = {"mine"};
    start.away = {"display"};
    start.isBooted = true;
    RandomCommands commands(/*seed=*/5, start);
    bool isMineUsed = false;
    std::string restarted;
    for (const std::string& line : linesOf(commands, 3000)) {
        const Words words = wordsOf(line);
        isMineUsed = isMineUsed || std::count(words.begin(), words.end(), "mine") > 0;
        if (restarted.empty() && words[0] == "restart") restarted = words[1];
        EXPECT_NE(words[1], "ro.debuggable");
        const bool isStart = words[0] == "start";
        EXPECT_FALSE(isStart && words[1] == "com.orbit.racer") << "under whose uid?";
        EXPECT_FALSE(isStart && words[1] == "com.pulse.coach:tracking") << "installed by another";
    }
    EXPECT_TRUE(isMineUsed);
    EXPECT_EQ(restarted, "display");
}

}  // namespace
}  // namespace sim::scenario
