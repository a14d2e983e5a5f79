// SPDX-License-Identifier: Apache-2.0
//
// The tracker's queries: pruning, the repair of the activity state, and the focus helper.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TrackerTest.h"
#include "WatchedCall.h"

namespace NQS::OS {
namespace {

using android::String16;
using Clients = std::vector<FocusClient>;
using Lines = std::vector<std::string>;

class QueriesTest : public TrackerTest {
protected:
    void SetUp() override { makeTracker(); }

    /** Comes to the foreground on the main display, with a panel service and an XR session. */
    void bringUp(const FocusClient& client) {
        start(client);
        activity->world.access([&](FakeActivityManager::World& world) {
            world.displays[client.pid] = {0};
            world.panels.insert(client);
        });
        (void)activity->observer()->onForegroundActivitiesChanged(client.pid, client.uid, true);
        (void)activity->observer()->onForegroundServicesChanged(client.pid, client.uid, 0);
        tracker->onXrSessionStateChanged(client.pid, client.uid, 0);
    }
    void setOnPrimary(const std::set<FocusClient>& clients) {
        activity->world.access([&](FakeActivityManager::World& w) { w.onPrimary = clients; });
        activity->calls.take();
    }
};

TEST_F(QueriesTest, DeadProcessesArePrunedForGoodFromTheCollectionThatIsAskedFor) {
    // Neither in pid nor in uid order, and one of them twice.
    const Clients arrivals = {{10050, 6}, {1000, 3}, {10050, 1}, {1000, 2}, {10050, 6}, {1000, 3}};
    for (const FocusClient& client : arrivals)
        bringUp(client);
    const Clients alive = {{10050, 6}, {1000, 2}, {10050, 6}};
    const Clients ascending = {{1000, 2}, {10050, 6}};
    const Clients all = {{1000, 2}, {1000, 3}, {10050, 1}, {10050, 6}};
    const std::pair<std::function<Clients()>, Clients> queries[] = {
            {[&] { return tracker->getClientsWithForegroundActivity(); }, alive},
            {[&] { return tracker->getClientsCurrentlyRendering(); }, ascending},
            {[&] { return tracker->getClientsWithForegroundPanelApp(); }, ascending},
            {[&] { return tracker->getClientsWithTopActivities(); }, all},
            {[&] { return tracker->getAllClientsWithTopActivities(); }, all},
    };
    for (const auto& [query, expected] : queries) {
        processes.kill(3);
        processes.kill(1);
        const int checks = processes.livenessChecks();
        EXPECT_EQ(query(), expected);
        EXPECT_EQ(processes.livenessChecks() != checks, expected != all) << "asked who lives";
        // Once forgotten, a process that is seen to live again stays forgotten; only there.
        start({1000, 3});
        start({10050, 1});
        EXPECT_EQ(query(), expected);
    }
}

TEST_F(QueriesTest, CollectionStaysAsItIsWhileItIsPruned) {
    bringUp({10050, 1});
    const auto observer = activity->observer();
    struct Row {
        const char* what;
        std::function<void()> query;
        std::function<void()> change;
    };
    const std::vector<Row> rows = {
            {"foreground activities", [&] { (void)tracker->getClientsWithForegroundActivity(); },
             [&] { (void)observer->onForegroundActivitiesChanged(1, 10050, true); }},
            {"rendering", [&] { (void)tracker->getClientsCurrentlyRendering(); },
             [&] { tracker->onXrSessionStateChanged(1, 10050, 0); }},
            {"panels", [&] { (void)tracker->getClientsWithForegroundPanelApp(); },
             [&] { (void)observer->onForegroundServicesChanged(1, 10050, 0); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        std::unique_ptr<WatchedCall> change;
        processes.setLivenessHook([&](int) {
            change = std::make_unique<WatchedCall>(row.change);
            EXPECT_TRUE(change->waitsIn(*tracker));
        });
        row.query();
        EXPECT_NE(change, nullptr);
    }
}

struct RepairRow {
    const char* what;
    /** Who is listed with a foreground activity before, oldest first. */
    Clients listed;
    std::set<FocusClient> onPrimary;
    Clients expected;
    /** Whom the activity manager was asked about. */
    Lines asked;
};

class RepairTest : public QueriesTest {
protected:
    static constexpr FocusClient kLow{1000, 50};
    static constexpr FocusClient kMid{10050, 20};
    static constexpr FocusClient kHigh{10050, 30};

    /** All three have a foreground activity somewhere; these are listed with one on display 0. */
    void list(const Clients& listed) {
        for (const FocusClient& client : {kHigh, kLow, kMid})
            notice(client, {});
        for (const FocusClient& client : listed)
            notice(client, {0});
    }

private:
    void notice(const FocusClient& client, const std::vector<int>& displays) {
        start(client);
        activity->world.access([&](FakeActivityManager::World& world) {
            world.onPrimary.clear();
            world.displays[client.pid] = displays;
        });
        tracker->onForegroundActivitiesChanged(client.pid, client.uid, true);
    }
};

TEST_F(RepairTest, StoppingClientHasTheLowestOneOnThePrimaryDisplayListed) {
    const Lines askedLow = {"primary 1000/50"};
    const Lines askedMid = {"primary 1000/50", "primary 10050/20"};
    const Lines askedAll = {"primary 1000/50", "primary 10050/20", "primary 10050/30"};
    const std::vector<RepairRow> rows = {
            {"nobody", {}, {}, {}, askedAll},
            {"lowest of two", {}, {kLow, kMid}, {kLow}, askedLow},
            {"lowest pid of a uid", {}, {kMid, kHigh}, {kMid}, askedMid},
            {"last one asked", {}, {kHigh}, {kHigh}, askedAll},
            {"added as the newest", {kHigh, kMid}, {kLow}, {kHigh, kMid, kLow}, askedLow},
            {"listed already", {kMid, kLow, kHigh}, {kMid}, {kMid, kLow, kHigh}, askedMid},
            {"listed twice", {kMid, kMid}, {kMid}, {kMid, kMid}, askedMid},
            {"not known to have an activity", {kMid}, {{1, 1}}, {kMid}, askedAll},
    };
    for (const RepairRow& row : rows) {
        SCOPED_TRACE(row.what);
        list(row.listed);
        setOnPrimary(row.onPrimary);
        log.take();
        int callbacks = 0;
        tracker->activityStateCallback = [&] { ++callbacks; };
        tracker->onXrSessionStateChanged(/*pid=*/7, /*uid=*/7, /*state=*/2);
        tracker->activityStateCallback = nullptr;
        EXPECT_EQ(activity->calls.take(), row.asked);
        EXPECT_EQ(tracker->getClientsWithForegroundActivity(), row.expected);
        EXPECT_EQ(callbacks, 0);
        EXPECT_EQ(log.take(), (Lines{"D Received XR_SESSION_STATE_STOPPING for pid: 7, uid: 7"}));
    }
}

TEST_F(RepairTest, ForegroundListIsFreeWhileTheActivityManagerIsAsked) {
    list({kMid});
    setOnPrimary({kHigh});
    Clients seen;
    activity->world.access([&](FakeActivityManager::World& world) {
        world.onPrimaryAsked = [&] { seen = tracker->getClientsWithForegroundActivity(); };
    });
    tracker->maybeUpdateActivityState();
    EXPECT_EQ(seen, Clients{kMid});
    EXPECT_EQ(tracker->getClientsWithForegroundActivity(), (Clients{kMid, kHigh}));
}

TEST_F(RepairTest, ClientsWithTopActivitiesStayAsTheyAreWhileTheActivityManagerIsAsked) {
    list({});
    setOnPrimary({kLow});
    std::unique_ptr<WatchedCall> query;
    activity->world.access([&](FakeActivityManager::World& world) {
        world.onPrimaryAsked = [&] {
            query = std::make_unique<WatchedCall>(
                    [&] { (void)tracker->getAllClientsWithTopActivities(); });
            EXPECT_TRUE(query->waitsIn(*tracker));
        };
    });
    tracker->maybeUpdateActivityState();
    EXPECT_NE(query, nullptr);
}

TEST_F(QueriesTest, ForwardersSendWhatTheyAreGivenEachTime) {
    tracker->forwardTopActivityChanged(String16("com.app"));
    tracker->forwardTopActivityChanged(String16("com.app"));
    tracker->forwardTopActivityChanged(String16());
    tracker->forwardTopActivityChanged(std::nullopt);
    tracker->forwardImmersiveAppChanged(String16("com.game"));
    tracker->forwardImmersiveAppChanged(String16());
    tracker->forwardImmersiveAppChanged(std::nullopt);
    tracker->forwardImmersiveAppChanged(std::nullopt);
    EXPECT_EQ(helper->calls.take(),
              (Lines{"top com.app", "top com.app", "top ", "top (none)", "immersive com.game",
                     "immersive ", "immersive (none)", "immersive (none)"}));
    loseService("vrfocushelper", *helper);
    tracker->forwardTopActivityChanged(String16("com.app"));
    tracker->forwardImmersiveAppChanged(std::nullopt);
    EXPECT_EQ(helper->calls.take(), Lines{}) << "lost without a helper";
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(QueriesTest, StoppingClientAloneTriggersARepairAndRendersNoMoreWhenItBegins) {
    bringUp({1000, 50});
    activity->calls.take();
    for (const int state : {0, 1, 3})
        tracker->onXrSessionStateChanged(50, 1000, state);
    EXPECT_EQ(activity->calls.take(), Lines{});
    Clients rendering = {{1, 1}};
    activity->world.access([&](FakeActivityManager::World& world) {
        world.onPrimaryAsked = [&] { rendering = tracker->getClientsCurrentlyRendering(); };
    });
    tracker->onXrSessionStateChanged(50, 1000, 2);
    EXPECT_EQ(rendering, Clients{});
}

TEST_F(RepairTest, FailedAnswersAndAMissingActivityManagerCountAsNoAndAsNoTopActivity) {
    list({});
    setOnPrimary({kLow});
    activity->world.access([](FakeActivityManager::World& w) {
        w.topActivity = String16("com.app");
        w.status = android::binder::Status::fromExceptionCode(-1);
    });
    for (const bool isThere : {true, false}) {
        if (!isThere) loseService("activity", *activity);
        activity->calls.take();
        tracker->maybeUpdateActivityState();
        EXPECT_EQ(tracker->getTopActivityOnPrimaryDisplay(), String16());
        EXPECT_EQ(tracker->getClientsWithForegroundActivity(), Clients{});
        EXPECT_EQ(activity->calls.take().empty(), !isThere);
    }
}

}  // namespace
}  // namespace NQS::OS
