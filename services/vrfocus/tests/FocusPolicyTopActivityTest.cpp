// SPDX-License-Identifier: Apache-2.0
//
// Top activity: which package it is, and which process stands for it.
#include <gtest/gtest.h>
#include <utils/String16.h>

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

TEST_F(TopActivityTest, TheNewestKnownForegroundClientDecidesElseThePrimaryDisplay) {
    const FocusClient bare = mWorld.run(2000, 103, "/system/bin/sh", /*package=*/"");
    const struct {
        const char* what;
        std::vector<FocusClient> foreground;
        std::set<int> unknown;
        const char* top;
    } kRows[] = {
            {"the newest", {mGame, mMail}, {}, "com.mail"},
            {"the newest of three", {mGame, mMail, mGame}, {}, "com.game"},
            {"unknown ones are passed over", {mGame, mMail}, {102}, "com.game"},
            {"nobody", {}, {}, "com.platform"},
            {"nobody known", {mGame, mMail}, {101, 102}, "com.platform"},
            {"a known one without a package", {mGame, bare}, {}, ""},
    };
    mWorld.setPrimaryTop("com.platform");
    for (const auto& row : kRows) {
        mWorld.tracker->foreground = row.foreground;
        mWorld.clients->unknown = row.unknown;
        EXPECT_EQ(topActivity(), row.top) << row.what;
    }
}

TEST_F(TopActivityTest, OlderClientsAreNotAskedForOnceOneIsKnown) {
    mWorld.tracker->foreground = {mGame, mMail, mWorld.run(10003, 103, "com.chat")};
    mWorld.clients->unknown = {103};
    mWorld.log->take();
    EXPECT_EQ(topActivity(), "com.mail");
    EXPECT_EQ(mWorld.log->take(), (Calls{"foreground", "build 103", "build 102"}));
}

TEST_F(TopActivityTest, OnlyAProcessNamedByteForByteLikeTheOverridablePackageIsOnTop) {
    class Fixed : public FocusPolicy {
    public:
        using FocusPolicy::FocusPolicy;
        String16 getTopActivity() override { return top; }
        String16 top;
    };
    const std::string beyondAscii = "com.spiel.\xc3\xbc\xf0\x9f\x8e\xae";
    const struct {
        String16 top;
        std::string process;
        bool isTop;
    } kRows[] = {
            {String16("com.game"), "com.game", true},
            {String16("com.game"), "com.game:remote", false},
            {String16("com.game"), "com.gam", false},
            {String16("com.game"), "Com.game", false},
            {String16("com.game"), "", false},
            {String16(u"com.game\0x", 10), "com.game", false},
            {String16(u"com.game\0x", 10), std::string("com.game\0x", 10), true},
            {String16(beyondAscii.c_str()), beyondAscii, true},
            {String16(), "", true},
    };
    Fixed policy(mWorld.tracker, mWorld.clients);
    for (const auto& row : kRows) {
        policy.top = row.top;
        EXPECT_EQ(policy.isTopActivity(mWorld.run(10009, 109, row.process).pid), row.isTop)
                << row.process;
    }
    EXPECT_EQ(mWorld.processes.shortNames(), 0);
}

}  // namespace
}  // namespace NQS::OS
