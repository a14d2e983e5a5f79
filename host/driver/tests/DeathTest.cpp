// SPDX-License-Identifier: Apache-2.0
//
// Death notices, and what a death does to calls.
#include <optional>

#include "HubFixture.h"
#include "RawClient.h"

namespace binderhost::tests {
namespace {

constexpr uint64_t kPtr = 0x1000;
constexpr uint64_t kCookie = 0xc00c1e;

class DeathTest : public HubFixture {
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

    RawClient mRegistry{path()};
    std::optional<RawClient> mService;
    void SetUp() override { mRegistry.publish(); }
};

TEST_F(DeathTest, aLinkedProcessIsToldOnceWhenTheNodesOwnerDies) {
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

TEST_F(DeathTest, aCallToAServiceThatDiesHoldingItIsAnsweredDead) {
    const uint32_t handle = receiveNode();
    mRegistry.write(Commands().call(handle, 9));
    mService->write(Commands().looper());
    (void)mService->expect(BR_TRANSACTION);
    mService.reset();
    (void)mRegistry.expect(BR_TRANSACTION_COMPLETE);
    (void)mRegistry.expect(BR_DEAD_REPLY);
}

}  // namespace
}  // namespace binderhost::tests
