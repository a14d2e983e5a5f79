// SPDX-License-Identifier: Apache-2.0
// What changes of the world tell whom, and what the services answer from it.
#include "world/World.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

namespace sim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Kind = Notice::Kind;

constexpr int kShell = 50;  // pids
constexpr int kGame = 60;
constexpr int kPanel = 70;
constexpr int kShellUid = 10050;
constexpr int kGameUid = 10060;
constexpr int kPanelUid = 10070;
constexpr int kSecond = 2;  // a display

Notice foreground(int pid, int uid, bool value) {
    return {Kind::ForegroundActivities, pid, uid, 0, value ? 1 : 0};
}

Notice focused(int pid, int uid) {
    return {Kind::FocusedWindow, pid, uid, 0, 0};
}

World worldWithApps() {
    World world;
    world.installPackage("com.shell", {kShellUid, {"READ"}});
    world.installPackage("com.game", {kGameUid, {}});
    world.installPackage("com.panel", {kPanelUid, {"BACKGROUND"}});
    world.addProcess(kShell, "com.shell", kShellUid);
    world.addProcess(kGame, "com.game", kGameUid);
    world.addProcess(kPanel, "com.panel:remote", kPanelUid);
    return world;
}

using Changes = std::function<std::vector<Notice>(World&)>;

struct NoticeRow {
    const char* what;
    std::vector<Changes> before;  // whose notices are not looked at
    Changes change;
    std::vector<Notice> expected;
};

Changes start(int pid, int display) {
    return [=](World& world) { return world.startActivity(pid, display); };
}

const std::vector<NoticeRow>& noticeRows() {
    static const std::vector<NoticeRow> kRows{
            {"the first activity", {}, start(kShell, 0), {foreground(kShell, kShellUid, true)}},
            {"a covered activity is told before the covering one",
             {start(kShell, 0)},
             start(kGame, 0),
             {foreground(kShell, kShellUid, false), foreground(kGame, kGameUid, true)}},
            {"an activity that is on top already", {start(kShell, 0)}, start(kShell, 0), {}},
            {"an activity that moves up again",
             {start(kShell, 0), start(kGame, 0)},
             start(kShell, 0),
             {foreground(kGame, kGameUid, false), foreground(kShell, kShellUid, true)}},
            {"finishing the top one uncovers the next",
             {start(kShell, 0), start(kGame, 0)},
             [](World& world) { return world.finishActivity(kGame, 0); },
             {foreground(kGame, kGameUid, false), foreground(kShell, kShellUid, true)}},
            {"finishing a covered one",
             {start(kShell, 0), start(kGame, 0)},
             [](World& world) { return world.finishActivity(kShell, 0); },
             {}},
            {"a process on top of a second display too is told again",
             {[](World& world) { return world.addDisplay(kSecond); }, start(kShell, 0)},
             start(kShell, kSecond),
             {foreground(kShell, kShellUid, true)}},
            {"a process that keeps one of its two displays stays in the foreground",
             {[](World& world) { return world.addDisplay(kSecond); }, start(kShell, 0),
              start(kShell, kSecond)},
             start(kGame, 0),
             {foreground(kShell, kShellUid, true), foreground(kGame, kGameUid, true)}},
            {"a display that comes",
             {},
             [](World& world) { return world.addDisplay(kSecond); },
             {{Kind::DisplayEvent, 0, 0, kSecond, Notice::kDisplayAdded}}},
            {"a display that is there already",
             {},
             [](World& world) { return world.addDisplay(0); },
             {}},
            {"a display that goes takes its activities along",
             {[](World& world) { return world.addDisplay(kSecond); }, start(kGame, kSecond)},
             [](World& world) { return world.removeDisplay(kSecond); },
             {{Kind::DisplayEvent, 0, 0, kSecond, Notice::kDisplayRemoved},
              foreground(kGame, kGameUid, false)}},
            {"the primary display stays",
             {},
             [](World& world) { return world.removeDisplay(World::kPrimaryDisplay); },
             {}},
            {"a panel service",
             {},
             [](World& world) { return world.setPanelService(kPanel, true); },
             {{Kind::ForegroundServices, kPanel, kPanelUid, 0, 0}}},
            {"a focused window",
             {},
             [](World& world) { return world.focusWindowOf(kGame); },
             {focused(kGame, kGameUid)}},
            {"no focused window any more",
             {[](World& world) { return world.focusWindowOf(kGame); }},
             [](World& world) { return world.focusNoWindow(); },
             {focused(0, 0)}},
            {"something else about a display",
             {},
             [](World& world) { return world.changeDisplay(0); },
             {{Kind::DisplayEvent, 0, 0, 0, Notice::kDisplayChanged}}},
            {"something about a display that is not there",
             {},
             [](World& world) { return world.changeDisplay(kSecond); },
             {}},
            {"a death is told as such, and never as a lost foreground",
             {start(kShell, 0), start(kGame, 0)},
             [](World& world) { return world.removeProcess(kGame); },
             {{Kind::ProcessDied, kGame, kGameUid, 0, 0}, foreground(kShell, kShellUid, true)}},
            {"the window of a dead process is followed by that of the top activity",
             {start(kShell, 0), start(kGame, 0),
              [](World& world) { return world.focusWindowOf(kGame); }},
             [](World& world) { return world.removeProcess(kGame); },
             {{Kind::ProcessDied, kGame, kGameUid, 0, 0},
              foreground(kShell, kShellUid, true),
              focused(kShell, kShellUid)}},
            {"or by none",
             {[](World& world) { return world.focusWindowOf(kGame); }},
             [](World& world) { return world.removeProcess(kGame); },
             {{Kind::ProcessDied, kGame, kGameUid, 0, 0}, focused(0, 0)}},
    };
    return kRows;
}

TEST(WorldTest, tellsWhatAChangeBringsInTheOrderOfThePlatform) {
    for (const NoticeRow& row : noticeRows()) {
        World world = worldWithApps();
        for (const Changes& change : row.before)
            static_cast<void>(change(world));
        EXPECT_EQ(row.change(world), row.expected) << row.what;
    }
}

TEST(WorldTest, whatIsNotThereChangesNothingAndTellsNobody) {
    const World before = worldWithApps();
    World world = before;
    EXPECT_THAT(world.removeProcess(1), IsEmpty());
    EXPECT_THAT(world.startActivity(1, 0), IsEmpty());
    EXPECT_THAT(world.startActivity(kGame, 9), IsEmpty());
    EXPECT_THAT(world.finishActivity(kGame, 9), IsEmpty());
    EXPECT_THAT(world.finishActivity(kGame, 0), IsEmpty());
    EXPECT_THAT(world.setPanelService(1, true), IsEmpty());
    EXPECT_THAT(world.changeServices(1), IsEmpty());
    EXPECT_THAT(world.focusWindowOf(1), IsEmpty());
    EXPECT_THAT(world.removeDisplay(9), IsEmpty());
    EXPECT_EQ(world, before);
}

TEST(WorldTest, reportsEveryForegroundProcessAndPanelAnew) {
    World world = worldWithApps();
    EXPECT_THAT(world.activityReport(), IsEmpty());
    static_cast<void>(world.startActivity(kShell, 0));
    static_cast<void>(world.startActivity(kGame, 0));
    static_cast<void>(world.setPanelService(kPanel, true));
    EXPECT_THAT(world.activityReport(),
                ElementsAre(foreground(kGame, kGameUid, true),
                            Notice{Kind::ForegroundServices, kPanel, kPanelUid, 0, 0}));
    EXPECT_THAT(world.windowReport(), IsEmpty());
    static_cast<void>(world.focusWindowOf(kGame));
    EXPECT_THAT(world.windowReport(), ElementsAre(focused(kGame, kGameUid)));
}

TEST(WorldTest, answersAboutActivitiesByPidAndUid) {
    World world = worldWithApps();
    static_cast<void>(world.addDisplay(kSecond));
    static_cast<void>(world.startActivity(kShell, 0));
    static_cast<void>(world.startActivity(kGame, 0));
    static_cast<void>(world.startActivity(kGame, kSecond));

    EXPECT_TRUE(world.hasActivityOnPrimaryDisplay(kShell, kShellUid)) << "covered, but there";
    EXPECT_FALSE(world.hasActivityOnPrimaryDisplay(kShell, kGameUid)) << "another uid";
    EXPECT_FALSE(world.hasActivityOnPrimaryDisplay(kPanel, kPanelUid));
    EXPECT_THAT(world.displaysWithTopActivities(kGame, {0, 1, kSecond}), ElementsAre(0, kSecond));
    EXPECT_THAT(world.displaysWithTopActivities(kGame, {kSecond}), ElementsAre(kSecond));
    EXPECT_THAT(world.displaysWithTopActivities(kShell, {0, kSecond}), IsEmpty());
    EXPECT_EQ(world.topPackageOnPrimaryDisplay(), "com.game");
}

TEST(WorldTest, theTopPackageIsThatOfTheProcessWithoutItsSuffix) {
    World world = worldWithApps();
    EXPECT_EQ(world.topPackageOnPrimaryDisplay(), "");
    static_cast<void>(world.startActivity(kPanel, 0));
    EXPECT_EQ(world.topPackageOnPrimaryDisplay(), "com.panel");
}

TEST(WorldTest, answersAboutPanelServicesByPidAndUid) {
    World world = worldWithApps();
    static_cast<void>(world.setPanelService(kPanel, true));
    EXPECT_TRUE(world.hasForegroundPanelService(kPanel, kPanelUid));
    EXPECT_FALSE(world.hasForegroundPanelService(kPanel, kGameUid));
    EXPECT_FALSE(world.hasForegroundPanelService(kGame, kGameUid));
    static_cast<void>(world.setPanelService(kPanel, false));
    EXPECT_FALSE(world.hasForegroundPanelService(kPanel, kPanelUid));
}

TEST(WorldTest, permissionsAreThoseOfTheUid) {
    struct Row {
        const char* what;
        const char* permission;
        int uid;
        bool expected;
    };
    const std::vector<Row> rows{
            {"granted to its package", "READ", kShellUid, true},
            {"granted to another package", "READ", kGameUid, false},
            {"another permission", "BACKGROUND", kPanelUid, true},
            {"a uid without packages", "READ", 0, false},
    };
    const World world = worldWithApps();
    for (const Row& row : rows) {
        EXPECT_EQ(world.hasPermission(row.permission, row.uid), row.expected) << row.what;
    }
}

TEST(WorldTest, packagesOfASharedUidHoldTheirPermissionsTogether) {
    World world;
    world.installPackage("com.a", {1000, {"READ"}});
    world.installPackage("com.b", {1000, {"WRITE"}});
    EXPECT_TRUE(world.hasPermission("READ", 1000));
    EXPECT_TRUE(world.hasPermission("WRITE", 1000));
    EXPECT_THAT(world.packagesOf(1000), ElementsAre("com.a", "com.b"));
    EXPECT_EQ(world.uidOf("com.b"), 1000);
    EXPECT_EQ(world.uidOf("com.c"), std::nullopt);
}

TEST(WorldTest, aProcessInThePlaceOfAnotherHasAllThatItHad) {
    World world = worldWithApps();
    static_cast<void>(world.startActivity(kShell, 0));
    static_cast<void>(world.startActivity(kGame, 0));
    static_cast<void>(world.setPanelService(kGame, true));
    static_cast<void>(world.focusWindowOf(kGame));
    world.replaceProcess(kGame, 61);
    EXPECT_FALSE(world.processes().contains(kGame));
    EXPECT_TRUE(world.hasForegroundPanelService(61, kGameUid));
    EXPECT_THAT(world.displaysWithTopActivities(61, {0}), ElementsAre(0));
    EXPECT_EQ(world.focusedWindowOwner(), 61);
    EXPECT_TRUE(world.hasActivityOnPrimaryDisplay(kShell, kShellUid));
    const World before = world;
    world.replaceProcess(kGame, 62);
    EXPECT_EQ(world, before) << "nobody has that pid any more";
}

TEST(WorldTest, permissionsComeAndGo) {
    World world = worldWithApps();
    EXPECT_FALSE(world.hasPermission("READ", kGameUid));
    EXPECT_TRUE(world.setPermission("com.game", "READ", true));
    EXPECT_TRUE(world.hasPermission("READ", kGameUid));
    EXPECT_TRUE(world.setPermission("com.game", "READ", false));
    EXPECT_FALSE(world.hasPermission("READ", kGameUid));
    EXPECT_FALSE(world.setPermission("com.unknown", "READ", true));
}

}  // namespace
}  // namespace sim
