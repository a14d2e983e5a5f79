// SPDX-License-Identifier: Apache-2.0
//
// One-way calls: order, identity, room.
#include "HubFixture.h"
#include "RawClient.h"

namespace binderhost::tests {
namespace {

class OnewayTest : public HubFixture {
protected:
    RawClient mServer{path()};
    RawClient mClient{path()};
    void SetUp() override { mServer.publish(); }
};

TEST_F(OnewayTest, theSenderIsDoneAtOnceAndTheReceiverSeesNoPid) {
    mClient.write(Commands().oneway(0, 7, "note"));
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    const Return call = mServer.expect(BR_TRANSACTION);
    EXPECT_EQ(call.text(), "note");
    EXPECT_EQ(call.data().flags & TF_ONE_WAY, uint32_t{TF_ONE_WAY});
    EXPECT_EQ(call.data().sender_pid, 0);
    EXPECT_EQ(call.data().sender_euid, geteuid());
}

TEST_F(OnewayTest, theNextCallOfANodeLeavesWhenTheBufferOfTheOneBeforeIsFreed) {
    for (uint32_t code = 1; code <= 3; code++) {
        mClient.write(Commands().oneway(0, code));
        (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    }
    const Return first = mServer.expect(BR_TRANSACTION);
    EXPECT_EQ(first.data().code, 1u);
    // A two-way call overtakes the queued ones: they are not ordered against each other.
    mClient.write(Commands().call(0, 100));
    const Return call = mServer.expect(BR_TRANSACTION);
    EXPECT_EQ(call.data().code, 100u);
    mServer.write(Commands().freeBuffer(call).reply());
    (void)mServer.expect(BR_TRANSACTION_COMPLETE);
    EXPECT_EQ(mClient.expectReply().text(), "");
    mServer.write(Commands().freeBuffer(first));
    const Return second = mServer.expect(BR_TRANSACTION);
    EXPECT_EQ(second.data().code, 2u);
    mServer.write(Commands().freeBuffer(second));
    EXPECT_EQ(mServer.expect(BR_TRANSACTION).data().code, 3u);
}

}  // namespace
}  // namespace binderhost::tests
