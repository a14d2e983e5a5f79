// SPDX-License-Identifier: Apache-2.0
//
// Tracking access: the set of displays, the watch for removed ones, permissions and packages.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "TrackerTest.h"
#include "WatchedCall.h"

namespace NQS::OS {
namespace {

using android::String16;
using Lines = std::vector<std::string>;
using Masks = std::vector<int64_t>;

class TrackingTest : public TrackerTest {
protected:
    void SetUp() override { makeTracker(); }

    /** The tracked displays, as the activity manager gets to see them. */
    std::string tracked() {
        activity->calls.take();
        tracker->onForegroundActivitiesChanged(/*pid=*/1, /*uid=*/1, /*fg=*/false);
        return activity->calls.take().at(0);
    }
};

struct AccessStep {
    bool isGrant;
    int display;
    Masks masks;
    Lines lines;
    std::string tracked;
};

TEST_F(TrackingTest, WatchStartsWithTheFirstSecondaryDisplayAndEndsWithTheLast) {
    const auto granted = [](int id) {
        return "D grantTrackingServiceAccess: displayId: " + std::to_string(id);
    };
    const auto revoked = [](int id) {
        return "D revokeTrackingServiceAccess: displayId: " + std::to_string(id);
    };
    const std::vector<AccessStep> steps = {
            {true, 0, {}, {granted(0)}, "displays 1 [0]"},
            {false, 0, {}, {}, "displays 1 [0]"},
            {false, 7, {}, {}, "displays 1 [0]"},
            {true, 3, {2}, {granted(3)}, "displays 1 [0 3]"},
            {true, 3, {2}, {granted(3)}, "displays 1 [0 3]"},
            {true, 4, {2}, {granted(4)}, "displays 1 [0 3 4]"},
            {true, 0, {2}, {granted(0)}, "displays 1 [0 3 4]"},
            {false, 7, {2}, {}, "displays 1 [0 3 4]"},
            {false, 3, {2}, {revoked(3)}, "displays 1 [0 4]"},
            {false, 4, {2, 0}, {revoked(4)}, "displays 1 [0]"},
            {false, 4, {2, 0}, {}, "displays 1 [0]"},
            {true, -1, {2, 0, 2}, {granted(-1)}, "displays 1 [-1 0]"},
            {false, -1, {2, 0, 2, 0}, {revoked(-1)}, "displays 1 [0]"},
    };
    for (size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE(i);
        log.take();
        if (steps[i].isGrant) {
            tracker->grantTrackingServiceAccess(steps[i].display);
        } else {
            tracker->revokeTrackingServiceAccess(steps[i].display);
        }
        EXPECT_EQ(log.take(), steps[i].lines);
        EXPECT_EQ(display->masks(), steps[i].masks);
        EXPECT_EQ(tracked(), steps[i].tracked);
    }
}

TEST_F(TrackingTest, RemovedDisplayLosesItsAccessAndTheSameCallbackIsRegisteredEachTime) {
    // Whatever the display manager answers.
    display->world.access([](FakeDisplayManager::World& world) {
        world.status = android::binder::Status::fromExceptionCode(-1);
    });
    tracker->grantTrackingServiceAccess(4);
    tracker->grantTrackingServiceAccess(5);
    const auto callback = display->callback();
    ASSERT_NE(callback, nullptr);
    (void)callback->onDisplayEvent(4, 3);
    (void)callback->onDisplayEvent(9, 3);
    (void)callback->onDisplayEvent(0, 3);
    EXPECT_EQ(tracked(), "displays 1 [0 5]");
    (void)callback->onDisplayEvent(5, 3);
    tracker->grantTrackingServiceAccess(4);
    EXPECT_EQ(display->masks(), (Masks{2, 0, 2}));
    EXPECT_EQ(display->callback(), callback);
}

TEST_F(TrackingTest, SetOfDisplaysStaysAsItIsWhileItIsAskedAboutAndWhileTheWatchStartsOrEnds) {
    std::unique_ptr<WatchedCall> other;
    const auto change = [&] {
        // Changes the set without another registration.
        other = std::make_unique<WatchedCall>([&] { tracker->revokeTrackingServiceAccess(9); });
        EXPECT_TRUE(other->waitsIn(*tracker));
    };
    activity->world.access([&](FakeActivityManager::World& w) { w.onDisplaysAsked = change; });
    display->world.access([&](FakeDisplayManager::World& w) { w.onRegister = change; });
    tracker->onForegroundActivitiesChanged(/*pid=*/1, /*uid=*/1, /*fg=*/true);
    EXPECT_NE(std::exchange(other, nullptr), nullptr);
    tracker->grantTrackingServiceAccess(5);
    EXPECT_NE(std::exchange(other, nullptr), nullptr);
    tracker->revokeTrackingServiceAccess(5);
    EXPECT_NE(other, nullptr);
}

using TrackingDeathTest = TrackingTest;

TEST_F(TrackingDeathTest, MissingDisplayManagerEndsTheProcessWhenTheWatchMustStartOrEnd) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    constexpr char kMessage[] = "display manager is not connected";
    EXPECT_DEATH(loseService("display", *display);
                 tracker->grantTrackingServiceAccess(3), kMessage);
    tracker->grantTrackingServiceAccess(3);
    loseService("display", *display);
    EXPECT_DEATH(tracker->revokeTrackingServiceAccess(3), kMessage);
}

TEST_F(TrackingTest, MissingDisplayManagerIsNotMissedWhereTheWatchStays) {
    tracker->grantTrackingServiceAccess(3);
    loseService("display", *display);
    tracker->grantTrackingServiceAccess(0);
    tracker->grantTrackingServiceAccess(3);
    tracker->grantTrackingServiceAccess(4);
    tracker->revokeTrackingServiceAccess(9);
    tracker->revokeTrackingServiceAccess(3);
    EXPECT_EQ(tracked(), "displays 1 [0 4]");
}

TEST_F(TrackingTest, PermissionAndPackagesAreTheControllersAnswerAndAnErrorLineWithoutOne) {
    permission->grant("p.YES", 10050);
    permission->install(10050, {"com.a", "com.b"});
    EXPECT_TRUE(tracker->checkPermission(String16("p.YES"), 4321, 10050));
    EXPECT_FALSE(tracker->checkPermission(String16("p.NO"), 4321, 10050));
    android::Vector<String16> packages;
    tracker->getPackagesForUid(10050, packages);
    EXPECT_EQ(packages.size(), 2U);
    EXPECT_EQ(permission->calls.take(), (Lines{"permission p.YES 10050/4321",
                                               "permission p.NO 10050/4321", "packages 10050"}));
    EXPECT_EQ(log.take(), Lines{});
    loseService("permission", *permission);
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(tracker->checkPermission(String16("p.YES"), 4321, 10050));
        tracker->getPackagesForUid(10050, packages);
        EXPECT_EQ(log.take(), (Lines{"E Failed to initialize PermissionController",
                                     "E No access to the PackageManager, package names unavailable "
                                     "for now..."}));
    }
    ASSERT_EQ(packages.size(), 2U);
    EXPECT_EQ(packages[1], String16("com.b"));
}

}  // namespace
}  // namespace NQS::OS
