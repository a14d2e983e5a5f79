// SPDX-License-Identifier: Apache-2.0
//
// The tracker's notices: what each does to the collections, to the callbacks and to the log.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FakeConnectionManager.h"
#include "TrackerTest.h"

namespace NQS::OS {
namespace {

using Clients = std::vector<FocusClient>;
using Lines = std::vector<std::string>;

constexpr int kUid = 10050;
constexpr int kPid = 4321;
constexpr FocusClient kClient{.uid = kUid, .pid = kPid};

class NoticesTest : public TrackerTest {
protected:
    void SetUp() override {
        makeTracker();
        tracker->activityStateCallback = [this] { ++activityCallbacks; };
        tracker->windowFocusCallback = [this] { ++windowCallbacks; };
        start(kClient);
    }

    void putOnDisplays(const FocusClient& client, const std::vector<int>& displays,
                       bool onPrimary) {
        activity->world.access([&](FakeActivityManager::World& world) {
            world.displays[client.pid] = displays;
            if (onPrimary) {
                world.onPrimary.insert(client);
            } else {
                world.onPrimary.erase(client);
            }
        });
    }
    void failCalls() {
        activity->world.access([](FakeActivityManager::World& world) {
            world.status = android::binder::Status::fromExceptionCode(-5);
        });
    }
    void noticeActivities(bool fg, const FocusClient& client = kClient) {
        EXPECT_TRUE(activity->observer()
                            ->onForegroundActivitiesChanged(client.pid, client.uid, fg)
                            .isOk());
    }
    void noticeServices() {
        EXPECT_TRUE(
                activity->observer()->onForegroundServicesChanged(kPid, kUid, /*types=*/7).isOk());
    }
    void noticeWindow(const FocusClient& client = kClient) {
        EXPECT_TRUE(
                window->observer()->onFocusedWindowChanged(nullptr, client.uid, client.pid).isOk());
    }
    /** Three notices, each of which lists the client. */
    void noticeAll() {
        putOnDisplays(kClient, {0}, true);
        setPanel(true);
        noticeActivities(true);
        noticeServices();
        noticeWindow();
    }
    void setPanel(bool hasPanel) {
        activity->world.access([&](FakeActivityManager::World& world) {
            world.panels.clear();
            if (hasPanel) world.panels.insert(kClient);
        });
    }

    int activityCallbacks = 0;
    int windowCallbacks = 0;
};

struct DisplayRow {
    std::vector<int> displays;
    bool onPrimary;
    bool main;
    bool secondary;
};

const std::vector<DisplayRow> kDisplayRows = {
        {{}, false, false, false},   {{0}, false, true, false},    {{5}, false, false, true},
        {{0, 5}, false, true, true}, {{5, 6}, false, false, true}, {{}, true, true, false},
        {{5}, true, true, false},    {{5, 6}, true, true, true},   {{5, 0}, false, true, true},
};

TEST_F(NoticesTest, MainAndSecondaryFollowFromTheDisplays) {
    for (const DisplayRow& row : kDisplayRows) {
        for (const bool fg : {true, false}) {
            SCOPED_TRACE("displays " + std::to_string(row.displays.size()) + " primary " +
                         std::to_string(row.onPrimary) + " fg " + std::to_string(fg));
            putOnDisplays(kClient, row.displays, row.onPrimary);
            log.take();
            activityCallbacks = 0;
            noticeActivities(fg);

            EXPECT_EQ(log.take(),
                      (Lines{"D onForegroundActivitiesChanged: uid: 10050, pid: 4321, fg: " +
                             std::to_string(fg) + ", display main: " + std::to_string(row.main) +
                             ", secondary: " + std::to_string(row.secondary)}));
            const Clients listed{kClient};
            EXPECT_EQ(tracker->getClientsWithForegroundActivity(),
                      fg && row.main ? listed : Clients{});
            EXPECT_EQ(tracker->getClientsWithTopActivities(),
                      fg && (row.main || row.secondary) ? listed : Clients{});
            EXPECT_EQ(tracker->getAllClientsWithTopActivities(), fg ? listed : Clients{});
            EXPECT_EQ(activityCallbacks, 1);
            noticeActivities(false);
        }
    }
}

TEST_F(NoticesTest, XrSessionStatesMoveTheRenderingClients) {
    struct Row {
        int state;
        Clients rendering;
        Lines lines;
    };
    const Lines visible = {"D Received XR_SESSION_STATE_VISIBLE for pid: 4321, uid: 10050"};
    const Lines stopping = {"D Received XR_SESSION_STATE_STOPPING for pid: 4321, uid: 10050"};
    const std::vector<Row> rows = {
            {1, {}, {}},
            {3, {}, {}},
            {0, {kClient}, visible},
            {0, {kClient}, visible},
            {1, {kClient}, {}},
            {3, {kClient}, {}},
            {-1, {kClient}, {}},
            {2, {}, stopping},
            {2, {}, stopping},
    };
    for (const Row& row : rows) {
        tracker->onXrSessionStateChanged(kPid, kUid, row.state);
        EXPECT_EQ(tracker->getClientsCurrentlyRendering(), row.rendering) << row.state;
        EXPECT_EQ(log.take(), row.lines) << row.state;
    }
    EXPECT_EQ(activityCallbacks, 0);
    EXPECT_EQ(windowCallbacks, 0);
}

TEST_F(NoticesTest, ClientIsListedOncePerNoticeUntilItEndsOrLeavesTheMainDisplay) {
    const FocusClient other{.uid = kUid, .pid = 99};
    start(other);
    putOnDisplays(kClient, {0}, false);
    putOnDisplays(other, {0}, false);
    noticeActivities(true);
    noticeActivities(true, other);
    noticeActivities(true);
    EXPECT_EQ(activity->calls.take().at(0), "displays 4321 [0]");
    const Clients listed = {kClient, other, kClient};
    EXPECT_EQ(tracker->getClientsWithForegroundActivity(), listed);
    EXPECT_EQ(tracker->getClientsWithTopActivities(), (Clients{other, kClient}));
    // Of another uid under the same pid, and of a process that died: both change nothing.
    noticeActivities(false, {.uid = kUid + 1, .pid = kPid});
    EXPECT_TRUE(activity->observer()->onProcessDied(kPid, kUid).isOk());
    EXPECT_EQ(tracker->getClientsWithForegroundActivity(), listed);
    noticeActivities(false);
    EXPECT_EQ(tracker->getClientsWithForegroundActivity(), Clients{other});
    putOnDisplays(other, {5}, false);
    noticeActivities(true, other);
    EXPECT_EQ(tracker->getClientsWithForegroundActivity(), Clients{});
    EXPECT_EQ(tracker->getClientsWithTopActivities(), Clients{other});
    EXPECT_EQ(tracker->getAllClientsWithTopActivities(), Clients{other});
    EXPECT_EQ(activityCallbacks, 6);
}

TEST_F(NoticesTest, FailedAnswersAndAMissingActivityManagerCountAsNoDisplay) {
    for (const bool isThere : {true, false}) {
        SCOPED_TRACE(isThere);
        putOnDisplays(kClient, {0, 5}, true);
        const auto observer = activity->observer();
        failCalls();
        if (!isThere) loseService("activity", *activity);
        log.take();
        EXPECT_TRUE(observer->onForegroundActivitiesChanged(kPid, kUid, true).isOk());
        EXPECT_EQ(log.take(), (Lines{"D onForegroundActivitiesChanged: uid: 10050, pid: 4321, "
                                     "fg: 1, display main: 0, secondary: 0"}));
        EXPECT_EQ(tracker->getClientsWithForegroundActivity(), Clients{});
        EXPECT_EQ(tracker->getClientsWithTopActivities(), Clients{});
        EXPECT_EQ(tracker->getAllClientsWithTopActivities(), Clients{kClient});
    }
    EXPECT_EQ(activityCallbacks, 2);
}

TEST_F(NoticesTest, PanelServicesAreAskedForAndTheCallbackRunsChangedOrNot) {
    const auto observer = activity->observer();
    for (const bool hasPanel : {true, true, false, false, true}) {
        setPanel(hasPanel);
        noticeServices();
        EXPECT_EQ(tracker->getClientsWithForegroundPanelApp(),
                  hasPanel ? Clients{kClient} : Clients{});
    }
    failCalls();
    noticeServices();
    EXPECT_EQ(tracker->getClientsWithForegroundPanelApp(), Clients{}) << "a failure means no panel";
    EXPECT_EQ(activityCallbacks, 6);
    EXPECT_EQ(activity->calls.take(), Lines(6, "panel 10050/4321"));
    loseService("activity", *activity);
    EXPECT_TRUE(observer->onForegroundServicesChanged(kPid, kUid, 0).isOk());
    EXPECT_EQ(activityCallbacks, 6) << "dropped without an activity manager";
    EXPECT_EQ(activity->calls.take(), Lines{});
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(NoticesTest, FocusedWindowIsTakenWithUidBeforePidUntilTheWindowManagerDies) {
    EXPECT_EQ(tracker->getClientWithWindowFocus(), (FocusClient{0, 0})) << "of nobody at first";
    noticeWindow();
    EXPECT_EQ(tracker->getClientWithWindowFocus(), kClient);
    noticeWindow({.uid = -5, .pid = -6});
    EXPECT_EQ(tracker->getClientWithWindowFocus(), (FocusClient{.uid = -5, .pid = -6}));
    loseService("VelmarWindowManager", *window);
    EXPECT_EQ(tracker->getClientWithWindowFocus(), (FocusClient{0, 0}));
    EXPECT_EQ(windowCallbacks, 2) << "nobody is told of a death";
    EXPECT_EQ(activityCallbacks, 0);
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(NoticesTest, ActivityManagerDeathEmptiesThreeCollectionsAndTellsNobody) {
    noticeAll();
    tracker->onXrSessionStateChanged(kPid, kUid, 0);
    loseService("activity", *activity);
    EXPECT_EQ(tracker->getClientsWithForegroundActivity(), Clients{});
    EXPECT_EQ(tracker->getClientsWithForegroundPanelApp(), Clients{});
    EXPECT_EQ(tracker->getClientsWithTopActivities(), Clients{});
    EXPECT_EQ(tracker->getAllClientsWithTopActivities(), Clients{kClient});
    EXPECT_EQ(tracker->getClientsCurrentlyRendering(), Clients{kClient});
    EXPECT_EQ(tracker->getClientWithWindowFocus(), kClient);
    EXPECT_EQ(activityCallbacks, 2);
}

TEST_F(NoticesTest, OnlyTheRemovalOfADisplayIsActedOnThroughTheVirtualOperation) {
    tracker->grantTrackingServiceAccess(4);
    log.take();
    for (const int event : {-3, 0, 1, 2, 4, 5})
        EXPECT_TRUE(display->callback()->onDisplayEvent(4, event).isOk());
    EXPECT_EQ(log.take(), Lines{});
    EXPECT_TRUE(display->callback()->onDisplayEvent(4, 3).isOk());
    EXPECT_EQ(log.take(),
              (Lines{"D onDisplayRemoved: 4", "D revokeTrackingServiceAccess: displayId: 4"}));
    const auto calls = std::make_shared<CallLog>();
    FakeConnectionManager(calls).onDisplayRemoved(4);
    EXPECT_EQ(calls->take(), Lines{"revoke 4"});
}

TEST_F(NoticesTest, CallbacksSeeWhatTheNoticeChangedAndMayUseTheWholeTracker) {
    Clients foreground, top, allTop, panels, windows;
    const auto look = [&] {
        foreground = tracker->getClientsWithForegroundActivity();
        top = tracker->getClientsWithTopActivities();
        allTop = tracker->getAllClientsWithTopActivities();
        panels = tracker->getClientsWithForegroundPanelApp();
        windows = {tracker->getClientWithWindowFocus()};
        (void)tracker->getTopActivityOnPrimaryDisplay();
        tracker->onXrSessionStateChanged(kPid, kUid, 2);
        tracker->grantTrackingServiceAccess(5);
        tracker->revokeTrackingServiceAccess(5);
    };
    const Clients all{kClient};
    putOnDisplays(kClient, {0}, true);
    setPanel(true);
    // A notice before the callbacks are installed is taken in.
    tracker->activityStateCallback = nullptr;
    tracker->windowFocusCallback = nullptr;
    noticeWindow({1, 1});
    noticeActivities(false);
    tracker->activityStateCallback = look;
    tracker->windowFocusCallback = look;
    noticeActivities(true);
    EXPECT_TRUE(foreground == all && top == all && allTop == all && panels.empty());
    noticeServices();
    EXPECT_EQ(panels, all);
    noticeWindow();
    EXPECT_EQ(windows, all);
}

}  // namespace
}  // namespace NQS::OS
