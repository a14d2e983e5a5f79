// SPDX-License-Identifier: Apache-2.0
//
// Death notices, and what a death does to calls.
#include <memory>
#include <optional>
#include <vector>

#include "DriverFixture.h"

namespace binderhost::tests {
namespace {

class DeathTest : public DriverFixture {
protected:
    /** The registry keeps a node of the service's and is linked to its death, if it wants that. */
    void keepNode(bool linked = true) {
        mService.emplace(path());
        mHandle = mService->giveNode(&mRegistry);
        if (linked) mRegistry.write(link(BC_REQUEST_DEATH_NOTIFICATION));
    }
    [[nodiscard]] Commands link(uint32_t command) const {
        Commands out;
        out.death(command, mHandle, kCookie);
        return out;
    }
    /** Returns when its end has become known: a driver may learn of it after its parent does. */
    void endService() {
        mService.reset();
        awaitStat("processes", 1);
    }
    void expectDead() { EXPECT_EQ(mRegistry.expect(BR_DEAD_BINDER).as<uint64_t>(), kCookie); }

    PeerClient mRegistry{path()};
    std::optional<PeerClient> mService;
    uint32_t mHandle = 0;
    void SetUp() override { mRegistry.publish(); }
};

TEST_P(DeathTest, aLinkedProcessIsToldOnceWhenTheNodesOwnerDies) {
    keepNode();
    EXPECT_EQ(mHandle, 1u);
    mService.reset();
    expectDead();
    mRegistry.write(Commands().deadDone(kCookie));
    mRegistry.write(Commands().call(mHandle, 1));
    (void)mRegistry.expect(BR_DEAD_REPLY);
    mRegistry.write(link(BC_CLEAR_DEATH_NOTIFICATION));
    EXPECT_EQ(mRegistry.expect(BR_CLEAR_DEATH_NOTIFICATION_DONE).as<uint64_t>(), kCookie);
}

TEST_P(DeathTest, aLinkToADeadNodeIsAnsweredAtOnce) {
    keepNode(/*linked=*/false);
    endService();
    mRegistry.write(link(BC_REQUEST_DEATH_NOTIFICATION));
    expectDead();
}

TEST_P(DeathTest, aClearedLinkIsConfirmedAndItsNodesDeathIsNotTold) {
    keepNode();
    mRegistry.write(link(BC_CLEAR_DEATH_NOTIFICATION));
    EXPECT_EQ(mRegistry.expect(BR_CLEAR_DEATH_NOTIFICATION_DONE).as<uint64_t>(), kCookie);
    endService();
    expectStat("queued", 0u);
    expectStat("death_links", 0u);
}

TEST_P(DeathTest, clearingALinkWhoseNoticeIsUnreadGivesDeadAndThenClearDone) {
    keepNode();
    endService();
    expectStat("queued", 1);
    mRegistry.write(link(BC_CLEAR_DEATH_NOTIFICATION));
    EXPECT_EQ(mRegistry.next().command, uint32_t{BR_DEAD_BINDER});
    mRegistry.write(Commands().deadDone(kCookie));
    EXPECT_EQ(mRegistry.next().command, uint32_t{BR_CLEAR_DEATH_NOTIFICATION_DONE});
    expectStat("death_links", 0u);
}

TEST_P(DeathTest, clearingALinkBetweenTheNoticeAndItsDoneWaitsForTheDone) {
    keepNode();
    mService.reset();
    expectDead();
    mRegistry.write(link(BC_CLEAR_DEATH_NOTIFICATION));
    expectStat("queued", 0u);
    mRegistry.write(Commands().deadDone(kCookie));
    EXPECT_EQ(mRegistry.next().command, uint32_t{BR_CLEAR_DEATH_NOTIFICATION_DONE});
}

TEST_P(DeathTest, aSecondLinkWrongHandlesAndWrongCookiesAreIgnored) {
    keepNode();
    mRegistry.write(Commands()
                            .death(BC_REQUEST_DEATH_NOTIFICATION, mHandle, kCookie + 1)
                            .death(BC_REQUEST_DEATH_NOTIFICATION, 4711, kCookie)
                            .death(BC_CLEAR_DEATH_NOTIFICATION, mHandle, kCookie + 1)
                            .death(BC_CLEAR_DEATH_NOTIFICATION, 4711, kCookie)
                            .deadDone(kCookie));
    expectStat("death_links", 1u);
    mService.reset();
    expectDead();
    expectStat("queued", 0u);
}

TEST_P(DeathTest, aLinkGoesWithItsLastReference) {
    keepNode();
    endService();
    expectStat("queued", 1);
    mRegistry.write(Commands().count(BC_RELEASE, mHandle));
    expectStat("death_links", 0u);
    PeerClient client(path());
    client.write(Commands().call(0, 5));
    EXPECT_EQ(mRegistry.next().command, uint32_t{BR_TRANSACTION}) << "the void notice is skipped";
}

TEST_P(DeathTest, everyWatcherOfEveryNodeIsToldOnce) {
    constexpr size_t kWatchers = 20;
    keepNode(/*linked=*/false);
    std::vector<std::unique_ptr<PeerClient>> watchers;
    for (size_t i = 0; i < kWatchers; i++) {
        auto& watcher = *watchers.emplace_back(std::make_unique<PeerClient>(path()));
        const uint32_t held = watcher.takeNode(&mRegistry, Payload().handle(mHandle));
        watcher.write(Commands().death(BC_REQUEST_DEATH_NOTIFICATION, held, kCookie + i).looper());
    }
    expectStat("death_links", kWatchers);
    mService.reset();
    for (size_t i = 0; i < kWatchers; i++)
        EXPECT_EQ(watchers[i]->next().as<uint64_t>(), kCookie + i);
    expectStat("queued", 0u);
}

TEST_P(DeathTest, theLastReplyIsNotOvertakenByTheDeath) {
    for (int round = 0; round < 50; round++) {
        keepNode();
        mRegistry.write(Commands().call(mHandle, 1));
        mService->write(Commands().looper());
        const Return call = mService->expect(BR_TRANSACTION);
        mService->write(Commands().freeBuffer(call).reply("last words"));
        mService.reset();
        EXPECT_EQ(mRegistry.expectReply().text(), "last words");
        expectDead();
    }
}

ON_EACH_DRIVER(DeathTest);

}  // namespace
}  // namespace binderhost::tests
