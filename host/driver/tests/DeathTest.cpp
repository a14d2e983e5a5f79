// SPDX-License-Identifier: Apache-2.0
//
// Death notices, and what a death does to calls.
#include <memory>
#include <optional>
#include <vector>

#include "DriverFixture.h"

namespace binderhost::tests {
namespace {

constexpr uint64_t kPtr = 0x1000;
constexpr uint64_t kCookie = 0xc00c1e;

class DeathTest : public DriverFixture {
protected:
    /** The registry keeps a node of the service's and can hand it out. */
    uint32_t receiveNode() {
        mService.emplace(path());
        mService->write(Commands().call(0, 1, Payload().node(kPtr)));
        const Return call = mRegistry.expect(BR_TRANSACTION);
        const uint32_t handle = call.object(0).handle;
        mRegistry.write(Commands()
                                .count(BC_INCREFS, handle)
                                .count(BC_ACQUIRE, handle)
                                .freeBuffer(call)
                                .reply());
        (void)mRegistry.expect(BR_TRANSACTION_COMPLETE);
        EXPECT_EQ(mService->expectReply().text(), "");
        return handle;
    }

    PeerClient mRegistry{path()};
    std::optional<PeerClient> mService;
    void SetUp() override { mRegistry.publish(); }
};

TEST_P(DeathTest, aLinkedProcessIsToldOnceWhenTheNodesOwnerDies) {
    const uint32_t handle = receiveNode();
    EXPECT_EQ(handle, 1u);
    mRegistry.write(Commands().death(BC_REQUEST_DEATH_NOTIFICATION, handle, kCookie));
    mService.reset();
    EXPECT_EQ(mRegistry.expect(BR_DEAD_BINDER).as<uint64_t>(), kCookie);
    mRegistry.write(Commands().deadDone(kCookie));
    mRegistry.write(Commands().call(handle, 1));
    (void)mRegistry.expect(BR_DEAD_REPLY);
    mRegistry.write(Commands().death(BC_CLEAR_DEATH_NOTIFICATION, handle, kCookie));
    EXPECT_EQ(mRegistry.expect(BR_CLEAR_DEATH_NOTIFICATION_DONE).as<uint64_t>(), kCookie);
}

TEST_P(DeathTest, aCallToAServiceThatDiesHoldingItIsAnsweredDead) {
    const uint32_t handle = receiveNode();
    mRegistry.write(Commands().call(handle, 9));
    mService->write(Commands().looper());
    (void)mService->expect(BR_TRANSACTION);
    mService.reset();
    (void)mRegistry.expect(BR_TRANSACTION_COMPLETE);
    (void)mRegistry.expect(BR_DEAD_REPLY);
}

TEST_P(DeathTest, aLinkToADeadNodeIsAnsweredAtOnce) {
    const uint32_t handle = receiveNode();
    mService.reset();
    awaitStat("processes", 1);
    mRegistry.write(Commands().death(BC_REQUEST_DEATH_NOTIFICATION, handle, kCookie));
    EXPECT_EQ(mRegistry.expect(BR_DEAD_BINDER).as<uint64_t>(), kCookie);
}

TEST_P(DeathTest, aClearedLinkIsConfirmedAndItsNodesDeathIsNotTold) {
    const uint32_t handle = receiveNode();
    mRegistry.write(Commands()
                            .death(BC_REQUEST_DEATH_NOTIFICATION, handle, kCookie)
                            .death(BC_CLEAR_DEATH_NOTIFICATION, handle, kCookie));
    EXPECT_EQ(mRegistry.expect(BR_CLEAR_DEATH_NOTIFICATION_DONE).as<uint64_t>(), kCookie);
    mService.reset();
    awaitStat("processes", 1);
    expectStat("queued", 0u);
    expectStat("death_links", 0u);
}

TEST_P(DeathTest, clearingALinkWhoseNoticeIsUnreadGivesDeadAndThenClearDone) {
    const uint32_t handle = receiveNode();
    mRegistry.write(Commands().death(BC_REQUEST_DEATH_NOTIFICATION, handle, kCookie));
    mService.reset();
    awaitStat("queued", 1);
    mRegistry.write(Commands().death(BC_CLEAR_DEATH_NOTIFICATION, handle, kCookie));
    EXPECT_EQ(mRegistry.next().command, uint32_t{BR_DEAD_BINDER});
    mRegistry.write(Commands().deadDone(kCookie));
    EXPECT_EQ(mRegistry.next().command, uint32_t{BR_CLEAR_DEATH_NOTIFICATION_DONE});
    expectStat("death_links", 0u);
}

TEST_P(DeathTest, clearingALinkBetweenTheNoticeAndItsDoneWaitsForTheDone) {
    const uint32_t handle = receiveNode();
    mRegistry.write(Commands().death(BC_REQUEST_DEATH_NOTIFICATION, handle, kCookie));
    mService.reset();
    EXPECT_EQ(mRegistry.expect(BR_DEAD_BINDER).as<uint64_t>(), kCookie);
    mRegistry.write(Commands().death(BC_CLEAR_DEATH_NOTIFICATION, handle, kCookie));
    expectStat("queued", 0u);
    mRegistry.write(Commands().deadDone(kCookie));
    EXPECT_EQ(mRegistry.next().command, uint32_t{BR_CLEAR_DEATH_NOTIFICATION_DONE});
}

TEST_P(DeathTest, aSecondLinkWrongHandlesAndWrongCookiesAreIgnored) {
    const uint32_t handle = receiveNode();
    mRegistry.write(Commands()
                            .death(BC_REQUEST_DEATH_NOTIFICATION, handle, kCookie)
                            .death(BC_REQUEST_DEATH_NOTIFICATION, handle, kCookie + 1)
                            .death(BC_REQUEST_DEATH_NOTIFICATION, 4711, kCookie)
                            .death(BC_CLEAR_DEATH_NOTIFICATION, handle, kCookie + 1)
                            .death(BC_CLEAR_DEATH_NOTIFICATION, 4711, kCookie)
                            .deadDone(kCookie));
    expectStat("death_links", 1u);
    mService.reset();
    EXPECT_EQ(mRegistry.expect(BR_DEAD_BINDER).as<uint64_t>(), kCookie);
    expectStat("queued", 0u);
}

TEST_P(DeathTest, aLinkGoesWithItsLastReference) {
    const uint32_t handle = receiveNode();
    mRegistry.write(Commands().death(BC_REQUEST_DEATH_NOTIFICATION, handle, kCookie));
    mService.reset();
    awaitStat("queued", 1);
    mRegistry.write(Commands().count(BC_RELEASE, handle).count(BC_DECREFS, handle));
    expectStat("death_links", 0u);
    PeerClient client(path());
    client.write(Commands().call(0, 5));
    EXPECT_EQ(mRegistry.next().command, uint32_t{BR_TRANSACTION}) << "the void notice is skipped";
}

TEST_P(DeathTest, everyWatcherOfEveryNodeIsToldOnce) {
    constexpr size_t kWatchers = 20;
    const uint32_t handle = receiveNode();
    std::vector<std::unique_ptr<PeerClient>> watchers;
    for (size_t i = 0; i < kWatchers; i++) {
        auto& watcher = *watchers.emplace_back(std::make_unique<PeerClient>(path()));
        watcher.write(Commands().call(0, 2));
        const Return call = mRegistry.expect(BR_TRANSACTION);
        mRegistry.write(Commands().freeBuffer(call).reply(Payload().handle(handle)));
        (void)mRegistry.expect(BR_TRANSACTION_COMPLETE);
        const Return reply = watcher.expectReply();
        const uint32_t held = reply.object(0).handle;
        watcher.write(Commands()
                              .count(BC_ACQUIRE, held)
                              .freeBuffer(reply)
                              .death(BC_REQUEST_DEATH_NOTIFICATION, held, kCookie + i)
                              .looper());
    }
    expectStat("death_links", kWatchers);
    mService.reset();
    for (size_t i = 0; i < kWatchers; i++) {
        EXPECT_EQ(watchers[i]->next().as<uint64_t>(), kCookie + i);
    }
    expectStat("queued", 0u);
}

TEST_P(DeathTest, theLastReplyIsNotOvertakenByTheDeath) {
    for (uint64_t round = 0; round < 50; round++) {
        const uint32_t handle = receiveNode();
        mRegistry.write(
                Commands().death(BC_REQUEST_DEATH_NOTIFICATION, handle, round).call(handle, 1));
        mService->write(Commands().looper());
        const Return call = mService->expect(BR_TRANSACTION);
        mService->write(Commands().freeBuffer(call).reply("last words"));
        mService.reset();
        EXPECT_EQ(mRegistry.expectReply().text(), "last words");
        EXPECT_EQ(mRegistry.expect(BR_DEAD_BINDER).as<uint64_t>(), round);
    }
}

ON_EACH_DRIVER(DeathTest);

}  // namespace
}  // namespace binderhost::tests
