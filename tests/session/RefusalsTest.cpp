// SPDX-License-Identifier: Apache-2.0
// Questions and reports that the daemon refuses, asked by real processes; nothing changes.
#include <gmock/gmock.h>

#include "HeadsetFixture.h"

namespace sim {
namespace {

class RefusalsTest : public HeadsetFixture {
protected:
    int exceptionOf(const std::string& app, const Json::Value& request) {
        return mHeadset->ask(app, request)["exception"].asInt();
    }
};

TEST_F(RefusalsTest, whoMayNotReadOrGrantIsRefusedEverything) {
    run([this] {
        startGame();
        if (!uidsTellAppsApart()) GTEST_SKIP() << "all apps share one uid, and its permissions";
        Json::Value focus = operation("getClientFocusStatus");
        focus["type"] = 0;
        focus["pids"].append(mHeadset->app(kGame).pid());
        Json::Value grant = operation("grant");
        Json::Value revoke = operation("revoke");
        grant["display"] = revoke["display"] = 0;
        for (const Json::Value& request :
             {focus, operation("getImmersiveApp"), operation("getTopActivity"),
              operation("getForegroundApps"), grant, revoke}) {
            EXPECT_EQ(exceptionOf(kGame, request), -1) << request["op"].asString();
        }
        mHeadset->expect(kShell, {{{kShell, kBoth}, {kGame, kBoth}}, kGame, kGame, ""});
    });
}

TEST_F(RefusalsTest, anAppReportsItsOwnSessionOnly) {
    run([this] {
        startGame();
        Json::Value request = operation("setAppState");
        request["state"] = Headset::kStopping;
        for (const int pid : {mHeadset->app(kGame).pid(), 0, -1, 1}) {
            request["pid"] = pid;
            EXPECT_EQ(exceptionOf(kShell, request), -1) << pid;
        }
        mHeadset->expect(kShell, {{{kShell, kBoth}, {kGame, kBoth}}, kGame, kGame, ""});
    });
}

TEST_F(RefusalsTest, otherSessionStatesAreAcceptedAndChangeNothing) {
    run([this] {
        startGame();
        for (const int state : {1, 3, -1, 1 << 30})
            mHeadset->reportXrSession(kGame, state);
        mHeadset->expect(kShell, {{{kShell, kBoth}, {kGame, kBoth}}, kGame, kGame, ""});
        mHeadset->reportXrSession(kGame, Headset::kStopping);
        mHeadset->expect(kShell, {{{kShell, kBoth}, {kGame, kBoth}}, "", kGame, ""});
    });
}

TEST_F(RefusalsTest, focusTypesOutOfRangeAreIllegal) {
    run([this] {
        Json::Value request = operation("getClientFocusStatus");
        request["pids"] = Json::arrayValue;
        for (const int type : {2, -1, 1 << 30}) {
            request["type"] = type;
            EXPECT_EQ(exceptionOf(kShell, request), -3) << type;
        }
    });
}

TEST_F(RefusalsTest, unknownPidsAreLeftOutOfTheAnswer) {
    run([this] {
        Json::Value request = operation("getClientFocusStatus");
        request["type"] = 0;
        for (const int pid : {0, -1, -2147483647, 2147483647, mHeadset->app(kShell).pid(),
                              mHeadset->app(kShell).pid()}) {
            request["pids"].append(pid);
        }
        const Json::Value answer = mHeadset->ask(kShell, request);
        EXPECT_EQ(answer["exception"], 0);
        ASSERT_EQ(answer["statuses"].size(), 1u);
        EXPECT_EQ(answer["statuses"][0]["pid"], mHeadset->app(kShell).pid());
        EXPECT_EQ(answer["statuses"][0]["hasFocus"], true);
    });
}

TEST_F(RefusalsTest, withoutTheMainDisplayTheImmersiveAppHasNoInput) {
    run([this] {
        startGame();
        EXPECT_EQ(mHeadset->revokeTracking(kShell, 0), 0);
        mHeadset->expect(kShell, {{{kShell, kBoth}, {kGame, kHeadOnly}}, kGame, kGame, ""});
        EXPECT_EQ(mHeadset->grantTracking(kShell, 0), 0);
        mHeadset->expect(kShell, {{{kShell, kBoth}, {kGame, kBoth}}, kGame, kGame, ""});
        EXPECT_EQ(mHeadset->displayMask(), 0) << "the main display is never watched";
    });
}

TEST_F(RefusalsTest, theForegroundAppsAreTheOnesThatRenderByProcessName) {
    run([this] {
        startGame();
        const Json::Value answer = mHeadset->ask(kShell, operation("getForegroundApps"));
        ASSERT_EQ(answer["names"].size(), 1u);
        EXPECT_EQ(answer["names"][0], kGame);
        mHeadset->reportXrSession(kGame, Headset::kStopping);
        EXPECT_EQ(mHeadset->ask(kShell, operation("getForegroundApps"))["names"].size(), 0u);
    });
}

TEST_F(RefusalsTest, theFocusOfAnAppIsItsRealUids) {
    run([this] {
        startGame();
        const Json::Value app = mHeadset->ask(kShell, operation("getImmersiveApp"))["app"];
        EXPECT_EQ(app["package"], kGame);
        EXPECT_EQ(app["pid"], mHeadset->app(kGame).pid());
        EXPECT_EQ(app["uid"], mHeadset->uidOf(kGame));
        EXPECT_EQ(app["top"], true);
    });
}

}  // namespace
}  // namespace sim
