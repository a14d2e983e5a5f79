// SPDX-License-Identifier: Apache-2.0
// The witness: which facts reach the oracle, and which answers are compared with its own.
#include "Witness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scenario/DumpPath.h"
#include "session/DrivenProcess.h"

namespace oracle {
namespace {

constexpr int kGame = 100;
constexpr int kGameUid = 10061;

class WitnessTest : public testing::Test {
protected:
    WitnessTest() {
        mWorld.installPackage("com.orbit.racer", {kGameUid, {}});
        mWorld.addProcess(kGame, "com.orbit.racer", kGameUid);
        mWitness.take(sim::WorldChanged{mWorld});
        mWitness.take(sim::SystemStarted{"activity"});
        mWitness.take(sim::SystemStarted{"permission"});
        mWitness.take(sim::SystemStarted{"vrfocushelper"});
        mWitness.take(sim::SystemStarted{"vrfocus"});
        mWitness.take(sim::ProcessStarted{kGame, kGameUid, "com.orbit.racer"});
    }

    void findAll() {
        mWitness.found("activity");
        mWitness.found("permission");
    }

    void call(const std::string& request, const std::string& answer) {
        Json::Value asked;
        Json::Value answered;
        ASSERT_TRUE(sim::scenario::parseJson(request, &asked)) << request;
        ASSERT_TRUE(sim::scenario::parseJson(answer, &answered)) << answer;
        mWitness.take(sim::CallAnswered{kGame, asked, answered});
    }

    sim::World mWorld;
    Witness mWitness;
};

constexpr const char* kHeadOfGame = R"({"op": "getClientFocusStatus", "type": 0, "pids": [100]})";
constexpr const char* kYes = R"({"exception": 0, "statuses": [{"pid": 100, "hasFocus": true}]})";
constexpr const char* kNo = R"({"exception": 0, "statuses": [{"pid": 100, "hasFocus": false}]})";

TEST_F(WitnessTest, NothingIsComparedBeforeTheDaemonHasFoundEveryServiceThatItDependsOn) {
    EXPECT_THAT(mWitness.awaited(), testing::ElementsAre("activity", "permission"));
    call(kHeadOfGame, kYes);
    mWitness.found("activity");
    call(kHeadOfGame, kYes);
    EXPECT_EQ(mWitness.compared(), 0);
    mWitness.found("permission");
    call(kHeadOfGame, kYes);
    EXPECT_EQ(mWitness.compared(), 1);
    EXPECT_TRUE(mWitness.disagreement().has_value());
}

TEST_F(WitnessTest, NothingIsComparedWhileTheDaemonIsAway) {
    findAll();
    mWitness.take(sim::SystemEnded{"vrfocus"});
    call(kHeadOfGame, kYes);
    EXPECT_FALSE(mWitness.compares());
    mWitness.take(sim::SystemStarted{"vrfocus"});
    EXPECT_THAT(mWitness.awaited(), testing::SizeIs(2));
    EXPECT_EQ(mWitness.compared(), 0);
}

TEST_F(WitnessTest, WhatWasAcceptedCountsAndWhatWasRefusedDoesNot) {
    findAll();
    call(R"({"op": "setAppState", "pid": 100, "state": 0})", R"({"exception": -1})");
    call(R"({"op": "getForegroundApps"})", R"({"exception": 0, "names": []})");
    call(R"({"op": "setAppState", "pid": 100, "state": 0})", R"({"exception": 0})");
    call(R"({"op": "getForegroundApps"})", R"({"exception": 0, "names": ["com.orbit.racer"]})");
    EXPECT_EQ(mWitness.compared(), 2);
    EXPECT_FALSE(mWitness.disagreement().has_value());
}

TEST_F(WitnessTest, ANoticeThatReachedNobodyDoesNotCount) {
    findAll();
    static_cast<void>(mWorld.startActivity(kGame, /*display=*/0));
    mWitness.take(sim::WorldChanged{mWorld});
    sim::Notice notice;
    notice.pid = kGame;
    notice.uid = kGameUid;
    notice.value = 1;
    mWitness.take(sim::SystemEnded{"vrfocus"});
    mWitness.take(sim::NoticeSent{notice, /*observers=*/0});
    mWitness.take(sim::SystemStarted{"vrfocus"});
    findAll();
    call(kHeadOfGame, kNo);
    EXPECT_FALSE(mWitness.disagreement().has_value());
    mWitness.take(sim::NoticeSent{notice, /*observers=*/1});
    call(kHeadOfGame, kYes);
    EXPECT_EQ(mWitness.compared(), 3);
    EXPECT_FALSE(mWitness.disagreement().has_value());
}

TEST_F(WitnessTest, ACallThatIsRefusedCountsAsAnsweredByNothingUntilTheFaultEnds) {
    findAll();
    static_cast<void>(mWorld.setPanelService(kGame, /*running=*/true));
    mWitness.take(sim::WorldChanged{mWorld});
    sim::FaultPlan refusal;
    refusal.kind = sim::FaultPlan::Kind::Error;
    refusal.method = "hasForegroundPanelService";
    sim::Notice notice;
    notice.kind = sim::Notice::Kind::ForegroundServices;
    notice.pid = kGame;
    notice.uid = kGameUid;
    const auto tellAndCompare = [&](const char* answer) {
        mWitness.take(sim::NoticeSent{notice, /*observers=*/1});
        call(kHeadOfGame, answer);
        EXPECT_FALSE(mWitness.disagreement().has_value());
    };
    refusal.times = 2;
    mWitness.take(sim::FaultSet{"activity", refusal});
    for (const char* answer : {kNo, kNo, kYes})
        tellAndCompare(answer);
    refusal.times = 0;
    mWitness.take(sim::FaultSet{"activity", refusal});
    for (const char* answer : {kNo, kNo, kNo})
        tellAndCompare(answer);
    mWitness.take(sim::FaultSet{"activity", {}});
    tellAndCompare(kYes);
    mWitness.take(sim::FaultSet{"activity", refusal});
    mWitness.take(sim::SystemEnded{"activity"});
    mWitness.take(sim::SystemStarted{"activity"});
    mWitness.found("activity");
    tellAndCompare(kYes);
}

TEST_F(WitnessTest, OfThoseThatHaveEndedADumpLooksForTheWindowsOwnerOnly) {
    findAll();
    mWitness.takeMissed({0});
    sim::Notice window;
    window.kind = sim::Notice::Kind::FocusedWindow;
    window.pid = kGame;
    window.uid = kGameUid;
    mWitness.take(sim::NoticeSent{window, /*observers=*/1});
    mWitness.takeMissed({});
    mWitness.take(sim::ProcessEnded{kGame});
    mWitness.takeMissed({kGame});
    EXPECT_FALSE(mWitness.disagreement().has_value());
    mWitness.takeMissed({kGame, 99});
    EXPECT_TRUE(mWitness.disagreement().has_value());
}

TEST_F(WitnessTest, TheDaemonHearsOfRemovedDisplaysWhileSomeAreGrantedAndOfNothingElseThere) {
    findAll();
    mWitness.take(sim::SystemStarted{"display"});
    mWitness.found("display");
    sim::Notice removed;
    removed.kind = sim::Notice::Kind::DisplayEvent;
    removed.display = 3;
    removed.value = sim::Notice::kDisplayRemoved;
    mWitness.take(sim::NoticeSent{removed, /*observers=*/0});
    EXPECT_FALSE(mWitness.disagreement().has_value());
    call(R"({"op": "grant", "display": 2})", R"({"exception": 0})");
    sim::Notice added = removed;
    added.value = sim::Notice::kDisplayAdded;
    mWitness.take(sim::NoticeSent{added, /*observers=*/0});
    mWitness.take(sim::NoticeSent{removed, /*observers=*/1});
    EXPECT_FALSE(mWitness.disagreement().has_value());
    call(R"({"op": "revoke", "display": 2})", R"({"exception": 0})");
    mWitness.take(sim::NoticeSent{removed, /*observers=*/1});
    ASSERT_TRUE(mWitness.disagreement().has_value());
    EXPECT_EQ(mWitness.disagreement()->due, 0);
}

TEST_F(WitnessTest, EveryQuestionIsComparedAndTheFirstDifferenceStays) {
    struct Case {
        const char* request;
        const char* wrong;
        const char* due;
    };
    for (const Case& each :
         {Case{kHeadOfGame, kYes, R"([{"pid": 100, "hasFocus": false}])"},
          {kHeadOfGame, R"({"exception": 0, "statuses": []})",
           R"([{"pid": 100, "hasFocus": false}])"},
          {R"({"op": "getImmersiveApp"})",
           R"({"exception": 0, "app": {"package": "a", "pid": 100, "uid": 1, "top": true}})",
           "null"},
          {R"({"op": "getTopActivity"})", R"({"exception": 0, "package": "a"})", R"("")"},
          {R"({"op": "getForegroundApps"})", R"({"exception": 0, "names": ["a"]})", "[]"}}) {
        Witness before = mWitness;
        findAll();
        call(each.request, each.wrong);
        call(R"({"op": "getTopActivity"})", R"({"exception": 0, "package": "later"})");
        ASSERT_TRUE(mWitness.disagreement().has_value()) << each.request;
        Json::Value due;
        ASSERT_TRUE(sim::scenario::parseJson(each.due, &due));
        EXPECT_EQ(mWitness.disagreement()->due, due) << each.request;
        mWitness = before;
    }
}

TEST_F(WitnessTest, ADumpIsComparedAsAWhole) {
    findAll();
    call(R"({"op": "dump"})", R"({"exception": 0, "dump": "{}"})");
    ASSERT_TRUE(mWitness.disagreement().has_value());
    EXPECT_EQ(mWitness.disagreement()->due["focusPolicy"]["windowFocus"], -1);
    EXPECT_EQ(mWitness.disagreement()->got, Json::Value(Json::objectValue));
}

TEST_F(WitnessTest, WhoWasRefusedHasAskedNothing) {
    findAll();
    call(kHeadOfGame, R"({"exception": -1, "statuses": []})");
    EXPECT_EQ(mWitness.compared(), 0);
    call(R"({"op": "getImmersiveApp"})", R"({"exception": -4})");
    EXPECT_EQ(mWitness.compared(), 1);
    EXPECT_FALSE(mWitness.disagreement().has_value());
}

}  // namespace
}  // namespace oracle
