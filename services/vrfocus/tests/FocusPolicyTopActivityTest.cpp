// SPDX-License-Identifier: Apache-2.0
//
// Top activity: which package it is, and which process stands for it.
#include <gtest/gtest.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <string>
#include <vector>

#include "FocusWorld.h"

namespace NQS::OS {
namespace {

using android::String16;
using Calls = std::vector<std::string>;

class TopActivityTest : public ::testing::Test {
protected:
    std::string topActivity() { return text(mWorld.policy->getTopActivity()); }

    FocusWorld mWorld;
    const FocusClient mGame = mWorld.run(10001, 101, "com.game");
    const FocusClient mMail = mWorld.run(10002, 102, "com.mail");
};

TEST_F(TopActivityTest, TheNewestForegroundClientDecides) {
    mWorld.tracker->foreground = {mGame, mMail};
    EXPECT_EQ(topActivity(), "com.mail");
    mWorld.tracker->foreground = {mMail, mGame};
    EXPECT_EQ(topActivity(), "com.game");
    mWorld.tracker->foreground = {mGame, mMail, mGame};
    EXPECT_EQ(topActivity(), "com.game");
}

TEST_F(TopActivityTest, ClientsThatTheRegistryDoesNotKnowArePassedOver) {
    mWorld.tracker->foreground = {mGame, mMail};
    mWorld.clients->unknown = {mMail.pid};
    EXPECT_EQ(topActivity(), "com.game");
}

TEST_F(TopActivityTest, WithoutAKnownForegroundClientThePrimaryDisplayAnswers) {
    mWorld.setPrimaryTop("com.platform");
    EXPECT_EQ(topActivity(), "com.platform");
    mWorld.tracker->foreground = {mGame, mMail};
    mWorld.clients->unknown = {mGame.pid, mMail.pid};
    EXPECT_EQ(topActivity(), "com.platform");
    mWorld.setPrimaryTop("");
    EXPECT_EQ(topActivity(), "");
}

TEST_F(TopActivityTest, AKnownClientDecidesEvenWithoutAPackage) {
    mWorld.setPrimaryTop("com.platform");
    mWorld.tracker->foreground = {mGame, mWorld.run(2000, 103, "/system/bin/sh", /*package=*/"")};
    EXPECT_EQ(topActivity(), "");
}

TEST_F(TopActivityTest, OlderClientsAreNotAskedForOnceOneIsKnown) {
    const FocusClient chat = mWorld.run(10003, 103, "com.chat");
    mWorld.tracker->foreground = {mGame, mMail, chat};
    mWorld.clients->unknown = {chat.pid};
    mWorld.log->take();
    EXPECT_EQ(topActivity(), "com.mail");
    EXPECT_EQ(mWorld.log->take(), (Calls{"foreground", "build 103", "build 102"}));
}

TEST_F(TopActivityTest, OnlyAProcessNamedExactlyLikeThePackageIsTheTopActivity) {
    const struct {
        const char* process;
        bool top;
    } kRows[] = {
            {"com.game", true},   {"com.game:remote", false}, {"com.gam", false},
            {"com.game2", false}, {"Com.game", false},        {"", false},
            {"com.game ", false},
    };
    mWorld.tracker->foreground = {mGame};
    for (const auto& row : kRows) {
        const FocusClient client = mWorld.run(10009, 109, row.process);
        EXPECT_EQ(mWorld.policy->isTopActivity(client.pid), row.top) << row.process;
    }
    EXPECT_EQ(FakeProcessTable::instance().shortNames(), 0);
}

TEST_F(TopActivityTest, NoByteIsLeftOutOfTheComparison) {
    class Fixed : public FocusPolicy {
    public:
        using FocusPolicy::FocusPolicy;
        String16 getTopActivity() override { return String16(u"com.game\0x", 10); }
    };
    Fixed policy(mWorld.tracker, mWorld.clients);
    EXPECT_FALSE(policy.isTopActivity(mGame.pid));
    const FocusClient same = mWorld.run(10009, 109, std::string("com.game\0x", 10));
    EXPECT_TRUE(policy.isTopActivity(same.pid));
}

TEST_F(TopActivityTest, ANamelessProcessIsOnTopWhenNothingElseIs) {
    const FocusClient nameless = mWorld.run(10009, 109, "");
    EXPECT_TRUE(mWorld.policy->isTopActivity(nameless.pid));
}

TEST_F(TopActivityTest, TheComparisonAsksTheOverridableTopActivity) {
    class Overridden : public FocusPolicy {
    public:
        using FocusPolicy::FocusPolicy;
        String16 getTopActivity() override { return String16("com.mail"); }
    };
    Overridden policy(mWorld.tracker, mWorld.clients);
    mWorld.tracker->foreground = {mGame};
    EXPECT_TRUE(policy.isTopActivity(mMail.pid));
    EXPECT_FALSE(policy.isTopActivity(mGame.pid));
}

TEST_F(TopActivityTest, NonAsciiNamesCompareInUtf8) {
    const FocusClient client = mWorld.run(10009, 109, "com.spiel.\xc3\xbc\xf0\x9f\x8e\xae");
    mWorld.tracker->foreground = {client};
    EXPECT_TRUE(mWorld.policy->isTopActivity(client.pid));
}

}  // namespace
}  // namespace NQS::OS
