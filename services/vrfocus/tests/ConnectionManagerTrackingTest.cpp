// SPDX-License-Identifier: Apache-2.0
//
// Tracking access: the set of displays, the watch for removed ones, permissions and packages.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <thread>
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
            {true, 4, {2}, {granted(4)}, "displays 1 [0 4]"},
            {false, 0, {2}, {}, "displays 1 [0 4]"},
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

TEST_F(TrackingTest, RemovedDisplayLosesItsAccess) {
    tracker->grantTrackingServiceAccess(4);
    tracker->grantTrackingServiceAccess(5);
    const auto callback = display->callback();
    (void)callback->onDisplayEvent(4, 3);
    EXPECT_EQ(tracked(), "displays 1 [0 5]");
    EXPECT_EQ(display->masks(), (Masks{2}));
    (void)callback->onDisplayEvent(9, 3);
    (void)callback->onDisplayEvent(0, 3);
    EXPECT_EQ(tracked(), "displays 1 [0 5]");
    (void)callback->onDisplayEvent(5, 3);
    EXPECT_EQ(display->masks(), (Masks{2, 0}));
}

TEST_F(TrackingTest, SameCallbackIsRegisteredEachTime) {
    tracker->grantTrackingServiceAccess(4);
    const auto first = display->callback();
    ASSERT_NE(first, nullptr);
    tracker->revokeTrackingServiceAccess(4);
    tracker->grantTrackingServiceAccess(4);
    EXPECT_EQ(display->callback(), first);
}

TEST_F(TrackingTest, RefusedRegistrationChangesNothing) {
    display->world.access([](FakeDisplayManager::World& world) {
        world.status = android::binder::Status::fromExceptionCode(-1);
    });
    log.take();
    tracker->grantTrackingServiceAccess(4);
    EXPECT_EQ(log.take().size(), 1U);
    EXPECT_EQ(tracked(), "displays 1 [0 4]");
}

TEST_F(TrackingTest, RegisteredMaskMatchesTheSetAfterAnyRace) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 10000;
    tracker->grantTrackingServiceAccess(1);
    const auto callback = display->callback();
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 random(static_cast<unsigned>(t));
            for (int round = 0; round < kRounds; ++round) {
                const int id = 1 + static_cast<int>(random() % 4);
                switch (random() % 3) {
                    case 0:
                        tracker->grantTrackingServiceAccess(id);
                        break;
                    case 1:
                        tracker->revokeTrackingServiceAccess(id);
                        break;
                    default:
                        (void)callback->onDisplayEvent(id, 3);
                        break;
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    const Masks masks = display->masks();
    for (size_t i = 0; i < masks.size(); ++i) {
        ASSERT_EQ(masks[i], i % 2 == 0 ? 2 : 0) << i;
    }
    EXPECT_GT(masks.size(), 1U);
    EXPECT_EQ(masks.back(), tracked() == "displays 1 [0]" ? 0 : 2);
    log.take();
}

TEST_F(TrackingTest, SetOfDisplaysStaysAsItIsWhileTheActivityManagerIsAskedAboutIt) {
    std::unique_ptr<WatchedCall> grant;
    activity->world.access([&](FakeActivityManager::World& world) {
        world.onDisplaysAsked = [&] {
            grant = std::make_unique<WatchedCall>([&] { tracker->grantTrackingServiceAccess(5); });
            EXPECT_TRUE(grant->waitsIn(*tracker));
        };
    });
    tracker->onForegroundActivitiesChanged(/*pid=*/1, /*uid=*/1, /*fg=*/true);
    grant.reset();
    EXPECT_EQ(display->masks(), (Masks{2}));
}

TEST_F(TrackingTest, SetOfDisplaysStaysAsItIsWhileTheWatchStartsOrEnds) {
    std::unique_ptr<WatchedCall> other;
    display->world.access([&](FakeDisplayManager::World& world) {
        world.onRegister = [&] {
            // Changes the set without another registration.
            other = std::make_unique<WatchedCall>([&] { tracker->revokeTrackingServiceAccess(9); });
            EXPECT_TRUE(other->waitsIn(*tracker));
        };
    });
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

TEST_F(TrackingTest, PermissionAndPackagesAreTheControllersAnswer) {
    permission->grant("p.YES", 10050);
    EXPECT_TRUE(tracker->checkPermission(String16("p.YES"), 4321, 10050));
    EXPECT_FALSE(tracker->checkPermission(String16("p.NO"), 4321, 10050));
    EXPECT_FALSE(tracker->checkPermission(String16("p.YES"), 4321, 10051));
    permission->install(10050, {"com.a", "com.b"});
    android::Vector<String16> packages;
    tracker->getPackagesForUid(10050, packages);
    ASSERT_EQ(packages.size(), 2U);
    EXPECT_EQ(packages[0], String16("com.a"));
    EXPECT_EQ(packages[1], String16("com.b"));
    EXPECT_EQ(permission->calls.take(),
              (Lines{"permission p.YES 10050/4321", "permission p.NO 10050/4321",
                     "permission p.YES 10051/4321", "packages 10050"}));
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(TrackingTest, EachQuestionWithoutAPermissionControllerIsAnErrorLine) {
    permission->grant("p.YES", 10050);
    permission->install(10050, {"com.a"});
    loseService("permission", *permission);
    android::Vector<String16> packages;
    packages.push_back(String16("kept"));
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(tracker->checkPermission(String16("p.YES"), 4321, 10050));
        tracker->getPackagesForUid(10050, packages);
    }
    const std::string noPermission = "E Failed to initialize PermissionController";
    const std::string noPackages =
            "E No access to the PackageManager, package names unavailable for now...";
    EXPECT_EQ(log.take(), (Lines{noPermission, noPackages, noPermission, noPackages}));
    ASSERT_EQ(packages.size(), 1U);
    EXPECT_EQ(packages[0], String16("kept"));
    EXPECT_EQ(permission->calls.take(), Lines{});
}

}  // namespace
}  // namespace NQS::OS
