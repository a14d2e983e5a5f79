// SPDX-License-Identifier: Apache-2.0
//
// The tracker's life: construction, observers over reconnections, and notices from many threads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "Signal.h"
#include "TrackerTest.h"

namespace NQS::OS {
namespace {

using android::sp;
using Clients = std::vector<FocusClient>;
using Lines = std::vector<std::string>;

class LifecycleTest : public TrackerTest {
protected:
    /** Strong references on the newest process observer: the activity manager's, the tracker's. */
    static int observerReferences(FakeActivityManager& manager) {
        return manager.world.access([](auto& w) { return w.observers.back()->getStrongCount(); });
    }

    /** Has it come back as another instance, and waits until the tracker is registered there. */
    sp<FakeActivityManager> restartActivityManager(FakeActivityManager& old) {
        const sp<FakeActivityManager> next = new FakeActivityManager;
        // Shared: the connection may still be leaving raise() when this returns.
        const auto registered = std::make_shared<Signal>();
        next->world.access([&](FakeActivityManager::World& world) {
            world.onRegister = [registered] { registered->raise(); };
        });
        names.add("activity", next);
        old.die();
        EXPECT_TRUE(registered->await());
        return next;
    }
};

TEST_F(LifecycleTest, ServicesAreLookedUpOneAfterTheOtherWhetherTheyAreThereOrNot) {
    for (const bool areThere : {true, false}) {
        if (!areThere) names.clear();
        CallLog lookups;
        names.setLookupHook([&](const std::string& name) { lookups.add(name); });
        makeTracker();
        EXPECT_EQ(lookups.take(), (Lines{"activity", "display", "package_native", "permission",
                                         "VelmarWindowManager", "vrfocushelper"}));
        EXPECT_EQ(log.take(), Lines{});
        tracker.reset();
        names.setLookupHook(nullptr);
    }
}

TEST_F(LifecycleTest, ObserversOfTheConstructionLiveByTheirServicesAloneAndDisplaysHaveNone) {
    makeTracker();
    ASSERT_EQ(activity->registrations(), 1U);
    ASSERT_EQ(window->registrations(), 1U);
    EXPECT_EQ(display->callback(), nullptr);
    EXPECT_EQ(observerReferences(*activity), 1);
    EXPECT_EQ(window->observers.access([](auto& all) { return all.back()->getStrongCount(); }), 1);
    EXPECT_TRUE(activity->observer()->onForegroundActivitiesChanged(7, 10050, true).isOk());
    EXPECT_EQ(tracker->getAllClientsWithTopActivities(), (Clients{{10050, 7}}));
}

TEST_F(LifecycleTest, ObserverOfAReconnectionIsHeldByTheTrackerTooAndTheOldOneStillTakenIn) {
    makeTracker();
    tracker->grantTrackingServiceAccess(3);
    const auto lateObserver = activity->observer();
    const sp<FakeActivityManager> next = restartActivityManager(*activity);
    EXPECT_EQ(next->registrations(), 1U);
    EXPECT_NE(next->observer(), lateObserver);
    EXPECT_TRUE(lateObserver->onForegroundActivitiesChanged(7, 10050, true).isOk());
    EXPECT_EQ(next->calls.take(), (Lines{"displays 7 [0 3]", "primary 10050/7"}));
    EXPECT_GE(observerReferences(*next), 2);
    // Destruction waits for the connections, which then hold nothing any more.
    tracker.reset();
    EXPECT_EQ(observerReferences(*next), 1);
    EXPECT_EQ(next->links() + display->links() + permission->links() + window->links() +
                      helper->links(),
              0U);
    EXPECT_EQ(next->calls.take(), Lines{}) << "nothing is unregistered";
    EXPECT_EQ(display->masks(), (std::vector<int64_t>{2}));
}

TEST_F(LifecycleTest, MissingServicesAreLookedForEveryHalfSecond) {
    using Clock = std::chrono::steady_clock;
    constexpr size_t kFoundOn = 4;
    names.clear();
    ValueMutexBase<std::map<std::string, std::vector<Clock::time_point>>> lookups;
    Signal askedAgain;
    names.setLookupHook([&](const std::string& name) {
        const size_t count = lookups.access([&](auto& times) {
            times[name].push_back(Clock::now());
            return times[name].size();
        });
        if (count == 2) askedAgain.raise();
        if (name == "activity" && count == kFoundOn) names.add(name, activity);
    });
    Signal registered;
    activity->world.access([&](FakeActivityManager::World& world) {
        world.onRegister = [&registered] { registered.raise(); };
    });
    makeTracker();
    ASSERT_TRUE(registered.await());
    ASSERT_TRUE(askedAgain.await(6));
    tracker.reset();
    EXPECT_EQ(activity->registrations(), 1U);
    const auto times = lookups.access([](const auto& all) { return all; });
    ASSERT_EQ(times.size(), 6U);
    ASSERT_EQ(times.at("activity").size(), kFoundOn);
    for (const auto& [name, all] : times) {
        SCOPED_TRACE(name);
        for (size_t i = 1; i < all.size(); ++i)
            EXPECT_GE(all[i] - all[i - 1], std::chrono::milliseconds(500));
    }
    // No back-off: far above what a busy machine adds to a second and a half.
    EXPECT_LT(times.at("activity").back() - times.at("activity").front(), std::chrono::seconds(10));
}

TEST_F(LifecycleTest, NoticesQueriesAndReconnectionsMayRunAtOnce) {
    constexpr int kRounds = 500;
    makeTracker();
    for (int pid = 1; pid <= 8; ++pid)
        start({10050, pid});
    const auto observer = activity->observer();
    std::atomic<bool> isOver = false;
    std::vector<std::thread> threads;
    for (int t = 1; t <= 3; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                const int pid = 1 + (i + t) % 8;
                (void)observer->onForegroundActivitiesChanged(pid, 10050, i % 2 == 0);
                (void)observer->onForegroundServicesChanged(pid, 10050, 0);
                tracker->onXrSessionStateChanged(pid, 10050, i % 3);
                (void)window->observer()->onFocusedWindowChanged(nullptr, pid, pid);
            }
        });
    }
    std::thread reader([&] {
        while (!isOver) {
            (void)tracker->getClientsWithForegroundActivity();
            (void)tracker->getClientsCurrentlyRendering();
            (void)tracker->getClientsWithForegroundPanelApp();
            (void)tracker->getAllClientsWithTopActivities();
            (void)tracker->getTopActivityOnPrimaryDisplay();
            const FocusClient focused = tracker->getClientWithWindowFocus();
            EXPECT_EQ(focused.uid, focused.pid) << "a mixture of two reports";
            tracker->forwardTopActivityChanged(std::nullopt);
        }
    });
    sp<FakeActivityManager> current = activity;
    for (int i = 0; i < 50; ++i) {
        current = restartActivityManager(*current);
        EXPECT_EQ(current->registrations(), 1U);
    }
    for (std::thread& thread : threads)
        thread.join();
    isOver = true;
    reader.join();
    (void)tracker->getClientsWithForegroundActivity();
    log.take();
}

}  // namespace
}  // namespace NQS::OS
