// SPDX-License-Identifier: Apache-2.0
//
// Immersive app: the order of the rules, their ties, what is asked when and what is remembered.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "DumpText.h"
#include "FocusWorld.h"
#include "WatchedCall.h"

namespace NQS::OS {
namespace {

using Calls = std::vector<std::string>;

constexpr char kShell[] = "com.velmar.shellenv";

class ImmersiveAppTest : public ::testing::Test {
protected:
    /** The pid of the immersive app; 0 when there is none. */
    int immersivePid() {
        const auto app = mWorld.policy->getImmersiveApp();
        return app ? app->pid : 0;
    }

    /** Pids of the recorded choices, newest first. */
    std::vector<int> history() {
        return historyPids(dumpText([this](int fd) { mWorld.policy->dump(fd, {}); }));
    }

    /** Makes the client render and be the top activity. */
    void playAlone(const FocusClient& client) {
        mWorld.tracker->rendering = {client};
        mWorld.tracker->foreground = {client};
    }

    FocusWorld mWorld;
    const FocusClient mGame = mWorld.run(10001, 101, "com.game");
    const FocusClient mMail = mWorld.run(10002, 102, "com.mail");
    const FocusClient mSettings = mWorld.run(10003, 103, "com.android.settings");
};

TEST_F(ImmersiveAppTest, TheRulesDecideInTheirOrder) {
    const FocusClient twin = mWorld.run(10001, 100, "com.game");
    const FocusClient shell = mWorld.runKnown(10004, 104, kShell);
    const FocusClient shellTwin = mWorld.run(10004, 204, kShell);
    const FocusClient unknown{10050, 999}, none;
    const struct {
        const char* what;
        std::vector<FocusClient> rendering, foreground;
        FocusClient windowFocus, chosen;
    } kRows[] = {
            {"nobody renders", {}, {mGame}, {}, none},
            {"rendering, but not on top", {mGame, mMail}, {}, {}, none},
            {"rendering and on top", {mGame, mMail}, {mMail}, {}, mMail},
            {"the first of two", {mGame, twin}, {mGame}, {}, mGame},
            {"the first of two, exchanged", {twin, mGame}, {mGame}, {}, twin},
            {"an unknown one is passed over", {unknown, mGame}, {mGame}, {}, mGame},
            {"an overlay without window focus", {mSettings, mGame}, {mGame}, {}, mGame},
            {"an overlay with it", {mSettings, mGame}, {mGame}, mSettings, mSettings},
            {"an overlay that does not render", {mGame}, {mGame}, mSettings, mGame},
            {"only the pid of the focus counts", {mSettings}, {}, {1, mSettings.pid}, mSettings},
            {"its uid alone does not", {mSettings}, {}, {mSettings.uid, 1}, none},
            {"the shell on top need not render", {}, {shell}, {}, shell},
            {"the shell before who renders", {shellTwin}, {shell}, {}, shell},
            {"who renders, but under the shell", {mGame}, {mGame, shell}, {}, shell},
            {"an overlay before both", {mGame, mSettings}, {mGame, shell}, mSettings, mSettings},
            {"a shell that is not on top", {mGame}, {shell, mGame}, {}, mGame},
    };
    for (const auto& row : kRows) {
        mWorld.tracker->rendering = row.rendering;
        mWorld.tracker->foreground = row.foreground;
        mWorld.tracker->windowFocus = row.windowFocus;
        SCOPED_TRACE(row.what);
        const auto app = mWorld.policy->getImmersiveApp();
        ASSERT_EQ(app.has_value(), row.chosen != none);
        if (!app) continue;
        EXPECT_EQ((FocusClient{app->uid, app->pid}), row.chosen);
        EXPECT_EQ(text(app->packageName), mWorld.processes.nameOf(row.chosen.pid, /*full=*/true));
        EXPECT_TRUE(app->isTopActivity) << "whichever rule chose it";
    }
}

TEST_F(ImmersiveAppTest, EverySystemOverlayWithWindowFocusWinsByItsProcessName) {
    const struct {
        const char* process;
        const char* package;
        bool wins;
    } kRows[] = {
            {"system_server", "", true},
            {"com.velmar.vralertservice", "com.velmar.vralertservice", true},
            {"com.velmar.os.vrlockscreen", "other.package", true},
            {"com.android.settings", "com.android.settings", true},
            {"com.android.settings:remote", "com.android.settings", false},
            {"com.android.setting", "com.android.settings", false},
            {"renamed", "com.android.settings", false},
            {"com.velmar.shellenv2", "com.velmar.shellenv2", false},
    };
    int uid = 10009;
    for (const auto& row : kRows) {
        const FocusClient overlay = mWorld.run(++uid, 109, row.process, row.package);
        mWorld.tracker->foreground = {mGame};
        mWorld.tracker->rendering = {mGame, overlay};
        mWorld.tracker->windowFocus = overlay;
        EXPECT_EQ(immersivePid(), row.wins ? overlay.pid : mGame.pid) << row.process;
        mWorld.end(overlay.pid);
    }
}

TEST_F(ImmersiveAppTest, TheShellIsOnTopByItsPackageOrByItsProcessAndTheFirstOneAlone) {
    mWorld.runKnown(10004, 205, "com.velmar.home", kShell);
    mWorld.runKnown(10005, 104, "shell_b", kShell);
    const std::pair<const char*, int> rows[] = {
            {kShell, 205}, {"com.velmar.home", 205}, {"shell_b", 0}, {"com.velmar.other", 0}};
    for (const auto& [top, pid] : rows) {
        mWorld.setPrimaryTop(top);
        EXPECT_EQ(immersivePid(), pid) << top;
    }
    EXPECT_EQ(mWorld.processes.shortNames(), 0);
}

TEST_F(ImmersiveAppTest, TheShellsProcessIsMeasuredByASecondTopActivityWithEveryByte) {
    class Moving : public FocusPolicy {
    public:
        using FocusPolicy::FocusPolicy;
        android::String16 getTopActivity() override { return answers.at(asked++); }
        std::vector<android::String16> answers;
        size_t asked = 0;
    };
    mWorld.runKnown(10004, 104, "com.velmar.home", kShell);
    Moving policy(mWorld.tracker, mWorld.clients);
    policy.answers = {android::String16("com.first"), android::String16("com.velmar.home"),
                      android::String16(u"com.velmar.shellenv\0x", 21), android::String16()};
    EXPECT_TRUE(policy.getImmersiveApp().has_value());
    EXPECT_FALSE(policy.getImmersiveApp().has_value());
    EXPECT_EQ(policy.asked, 4u);
}

TEST_F(ImmersiveAppTest, EachCandidateIsMeasuredByTheNewestWindowFocus) {
    mWorld.tracker->rendering = {mGame, mSettings};
    mWorld.tracker->foreground = {mGame};
    mWorld.tracker->windowFocus = mGame;
    mWorld.tracker->onWindowFocusAsked = [this, asked = 0]() mutable {
        if (++asked == 2) mWorld.tracker->windowFocus = mSettings;
    };
    EXPECT_EQ(immersivePid(), mSettings.pid);
}

TEST_F(ImmersiveAppTest, QueriesComeInTheOrderOfTheRulesAfterALookAtTheStoredApp) {
    mWorld.log->take();
    EXPECT_EQ(immersivePid(), 0);
    EXPECT_EQ(mWorld.log->take(), (Calls{"rendering", "foreground"}));
    mWorld.runKnown(10004, 104, kShell);
    mWorld.tracker->rendering = {mMail, mGame};
    mWorld.tracker->foreground = {mGame};
    mWorld.log->take();
    EXPECT_EQ(immersivePid(), mGame.pid);
    EXPECT_EQ(mWorld.log->take(),
              (Calls{"rendering", "build 102", "windowFocus", "build 101", "windowFocus",
                     // The top package, then the shell's own comparison.
                     "foreground", "build 101", "foreground", "build 101",
                     // Each rendering client; the chosen one is measured twice.
                     "build 102", "foreground", "build 101", "build 101", "foreground", "build 101",
                     "foreground", "build 101"}));
    mWorld.tracker->rendering = {mSettings, mGame};
    mWorld.tracker->windowFocus = mSettings;
    mWorld.processes.setLivenessHook(
            [this](int pid) { mWorld.log->add("alive " + std::to_string(pid)); });
    EXPECT_EQ(immersivePid(), mSettings.pid);
    EXPECT_EQ(mWorld.log->take(), (Calls{"rendering", "alive 101", "build 103", "windowFocus",
                                         "foreground", "build 101"}));
}

TEST_F(ImmersiveAppTest, TheChoiceIsStoredUntilTheNextQuestion) {
    playAlone(mGame);
    EXPECT_EQ(mWorld.storedPackage(), "");
    immersivePid();
    mWorld.tracker->rendering = {};
    mWorld.end(mGame.pid);
    EXPECT_EQ(mWorld.storedPackage(), "com.game");
    immersivePid();
    EXPECT_EQ(mWorld.storedPackage(), "");
}

TEST_F(ImmersiveAppTest, TheHistoryKeepsTheTenNewestChoicesAndARunOfOnePidOnce) {
    immersivePid();
    EXPECT_EQ(history(), std::vector<int>()) << "none is no choice";
    const auto play = [this](const FocusClient& client) {
        playAlone(client);
        EXPECT_EQ(immersivePid(), client.pid);
    };
    play(mGame);
    mWorld.tracker->rendering = {};
    immersivePid();
    play(mGame);
    mWorld.end(101);
    // Even as another client, with another package: only the pid is compared.
    play(mWorld.run(10050, 101, "com.reused"));
    EXPECT_EQ(history(), (std::vector<int>{101}));
    play(mMail);
    play({10050, 101});
    EXPECT_EQ(history(), (std::vector<int>{101, 102, 101}));
    for (int pid = 301; pid <= 311; ++pid)
        play(mWorld.run(10000 + pid, pid, "com.app" + std::to_string(pid)));
    EXPECT_EQ(history(), (std::vector<int>{311, 310, 309, 308, 307, 306, 305, 304, 303, 302}));
}

TEST_F(ImmersiveAppTest, RenderingClientsAreAskedForBeforeTheLockAndTheRestUnderIt) {
    playAlone(mGame);
    std::unique_ptr<WatchedCall> second;
    std::atomic<int> renderingAsked = 0;
    mWorld.tracker->onRenderingAsked = [&] { ++renderingAsked; };
    mWorld.tracker->onWindowFocusAsked = [&, first = true]() mutable {
        if (!std::exchange(first, false)) return;
        second = std::make_unique<WatchedCall>([this] { immersivePid(); });
        EXPECT_TRUE(second->waitsIn(*mWorld.policy));
        EXPECT_EQ(renderingAsked, 2) << "asked before it waited";
    };
    mWorld.clients->onBuild = [&, first = true](int) mutable {
        if (!std::exchange(first, false)) return;
        WatchedCall free([this] { EXPECT_TRUE(mWorld.policy->isTopActivity(101)); });
        EXPECT_TRUE(free.ends());
    };
    EXPECT_EQ(immersivePid(), mGame.pid);
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(second->ends());
}

}  // namespace
}  // namespace NQS::OS
