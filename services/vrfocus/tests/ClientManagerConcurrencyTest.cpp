// SPDX-License-Identifier: Apache-2.0
//
// The registry under several threads: a slow service holds up nobody but those who wait for it.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "ClientManager.h"
#include "Signal.h"
#include "TrackerTest.h"
#include "WatchedCall.h"

namespace NQS::OS {
namespace {

class ClientManagerConcurrencyTest : public TrackerTest {
protected:
    void SetUp() override { registry = std::make_unique<ClientManager>(makeTracker()); }

    void whenPackagesAsked(const std::function<void(int)>& hook) {
        permission->world.access([&](FakePermissionController::World& w) { w.onPackages = hook; });
    }

    std::unique_ptr<ClientManager> registry;
};

TEST_F(ClientManagerConcurrencyTest, KnownClientsAnswerWhileANewOneIsBeingBuilt) {
    processes.set(10, 1000, "known");
    processes.set(20, 10050, "new");
    ASSERT_TRUE(registry->buildClientInfo(10));

    const auto useRegistry = [&](int) {
        WatchedCall other([&] { (void)registry->getSnapshot(); });
        EXPECT_TRUE(other.ends());
    };
    processes.setUidHook(useRegistry);
    processes.setNameHook([&](int pid) {
        if (pid == 20) useRegistry(pid);
    });
    Signal asked;
    Signal release;
    bool isReleased = false;
    whenPackagesAsked([&](int) {
        asked.raise();
        isReleased = release.await();
    });
    auto building = std::async(std::launch::async, [&] { return registry->buildClientInfo(20); });
    ASSERT_TRUE(asked.await());
    EXPECT_TRUE(registry->buildClientInfo(10));
    EXPECT_EQ(registry->getSnapshot().size(), 1U);
    registry->addCurrentFocus({.uid = 1000, .pid = 10}, FocusType::HeadTracking);
    registry->removeCurrentFocus({.uid = 1000, .pid = 10}, FocusType::HeadTracking);
    release.raise();
    EXPECT_TRUE(building.get());
    EXPECT_TRUE(isReleased);
    EXPECT_EQ(registry->getSnapshot().size(), 2U);
}

TEST_F(ClientManagerConcurrencyTest, RecordsStayAsTheyAreWhileTheirProcessesAreLookedAt) {
    const FocusClient client{.uid = 1000, .pid = 10};
    processes.set(client.pid, client.uid, "app");
    ASSERT_TRUE(registry->buildClientInfo(client.pid));
    std::unique_ptr<WatchedCall> change;
    const auto changeMeanwhile = [&](int) {
        change = std::make_unique<WatchedCall>(
                [&] { registry->addCurrentFocus(client, FocusType::HeadTracking); });
        EXPECT_TRUE(change->waitsIn(*registry));
    };
    processes.setLivenessHook(changeMeanwhile);
    const auto snapshot = registry->getSnapshot();
    EXPECT_NE(std::exchange(change, nullptr), nullptr);
    ASSERT_EQ(snapshot.size(), 1U);
    EXPECT_TRUE(snapshot.begin()->currentFocus.empty());
    EXPECT_EQ(registry->buildClientInfo(client.pid)->currentFocus,
              std::set<FocusType>{FocusType::HeadTracking});
    processes.setNameHook(changeMeanwhile);
    ASSERT_TRUE(registry->buildClientInfo(client.pid));
    EXPECT_NE(change, nullptr);
}

TEST_F(ClientManagerConcurrencyTest, LateRecordLeavesTheOneOnFileWithItsFocus) {
    const FocusClient client{.uid = 10050, .pid = 20};
    processes.set(20, 10050, "app");
    Signal slowAsked;
    Signal release;
    std::atomic<int> questions = 0;
    std::atomic<bool> isReleased = false;
    whenPackagesAsked([&](int) {
        if (questions++ != 0) return;
        slowAsked.raise();
        isReleased = release.await();
    });
    auto slow = std::async(std::launch::async, [&] { return registry->buildClientInfo(20); });
    ASSERT_TRUE(slowAsked.await());
    ASSERT_TRUE(registry->buildClientInfo(20));
    registry->addCurrentFocus(client, FocusType::InputTracking);
    release.raise();

    const auto late = slow.get();
    ASSERT_TRUE(late);
    EXPECT_TRUE(isReleased);
    EXPECT_EQ(late->client(), client);
    EXPECT_TRUE(late->currentFocus.empty()) << "the record that was built, not the one on file";
    EXPECT_EQ(registry->buildClientInfo(20)->currentFocus,
              std::set<FocusType>{FocusType::InputTracking});
    EXPECT_EQ(questions, 2);
}

TEST_F(ClientManagerConcurrencyTest, AllOperationsAtOnceLeaveOneRecordPerLiveProcess) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 500;
    constexpr int kPids = 16;
    for (int pid = 1; pid <= kPids; ++pid)
        processes.set(pid, 10000 + pid, "app");
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < kRounds; ++round) {
                const int pid = 1 + (round * 7 + t) % kPids;
                // Every process changes hands between two uids.
                processes.set(pid, (round % 2 == 0 ? 10000 : 20000) + pid, "app");
                const auto record = registry->buildClientInfo(pid);
                if (!record) continue;
                registry->addCurrentFocus(record->client(), FocusType::HeadTracking);
                registry->removeCurrentFocus(record->client(), FocusType::InputTracking);
                if (round % 16 == 0) (void)registry->getSnapshot();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (int pid = 1; pid <= kPids; ++pid) {
        if (pid % 2 == 0) processes.kill(pid);
    }
    std::set<int> pids;
    for (const auto& record : registry->getSnapshot()) {
        EXPECT_TRUE(pids.insert(record.pid).second) << record.pid;
        EXPECT_EQ(record.pid % 2, 1);
    }
    EXPECT_EQ(pids.size(), size_t{kPids / 2});
}

}  // namespace
}  // namespace NQS::OS
