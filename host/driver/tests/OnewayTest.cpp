// SPDX-License-Identifier: Apache-2.0
//
// One-way calls: order, identity, room.
#include "DriverFixture.h"

namespace binderhost::tests {
namespace {

class OnewayTest : public PairFixture {};

TEST_P(OnewayTest, theNextCallOfANodeLeavesWhenTheBufferOfTheOneBeforeIsFreed) {
    for (uint32_t code = 1; code <= 3; code++)
        mClient.post(0, code, "note");
    const Return first = mServer.expect(BR_TRANSACTION);
    EXPECT_EQ(first.data().code, 1u);
    EXPECT_EQ(first.text(), "note");
    EXPECT_EQ(first.data().flags & TF_ONE_WAY, uint32_t{TF_ONE_WAY});
    EXPECT_EQ(first.data().sender_pid, 0);
    EXPECT_EQ(first.data().sender_euid, geteuid());
    // A two-way call overtakes the queued ones: they are not ordered against each other.
    expectWorking();
    mServer.write(Commands().freeBuffer(first));
    EXPECT_EQ(mServer.take().data().code, 2u);
    EXPECT_EQ(mServer.take().data().code, 3u);
}

TEST_P(OnewayTest, twoNodesOfAProcessRunTheirOnewayCallsAtOnce) {
    mClient.write(Commands().call(0, 1));
    (void)mServer.serve(Payload().node(kPtr).node(kPtr + 8));
    const Return nodes = mClient.expectReply();
    for (size_t i = 0; i < 2; i++)
        mClient.post(nodes.object(i).handle, 10);
    EXPECT_EQ(mServer.expect(BR_TRANSACTION).data().target.ptr, kPtr);
    EXPECT_EQ(mServer.expect(BR_TRANSACTION).data().target.ptr, kPtr + 8);
}

TEST_P(OnewayTest, aThousandCallsArriveInTheOrderOfSending) {
    for (uint32_t code = 0; code < 1000; code++)
        mClient.post(0, code);
    for (uint32_t code = 0; code < 1000; code++)
        ASSERT_EQ(mServer.take().data().code, code);
}

TEST_P(OnewayTest, theSendersCallFailsWhenHalfOfTheBufferIsFullAndWorksAgainWhenItIsFreed) {
    const std::string block(64 * 1024 - 1024, 'x');  // eight fill the half but for some crumbs
    for (int i = 0; i < 8; i++)
        mClient.post(0, 1, block);
    mClient.write(Commands().oneway(0, 2, block));
    (void)mClient.expect(BR_FAILED_REPLY);
    // The receiver is unharmed: the other half takes two-way calls as before.
    mClient.write(Commands().call(0, 3, std::string(400 * 1024, 'y')));
    const Return first = mServer.expect(BR_TRANSACTION);
    EXPECT_EQ(first.data().code, 1u);
    EXPECT_EQ(mServer.serve().data().code, 3u);
    (void)mClient.expectReply();
    mServer.write(Commands().freeBuffer(first));
    awaitStat("buffers", 8);  // seven blocks and the reply
    mClient.post(0, 4, block);
}

TEST_P(OnewayTest, callsOfASenderThatHasDiedAreDeliveredAllTheSame) {
    {
        PeerClient mortal(path());
        for (uint32_t code = 1; code <= 2; code++)
            mortal.post(0, code, "will");
    }
    awaitStat("processes", 2);
    for (uint32_t code = 1; code <= 2; code++) {
        const Return call = mServer.take();
        EXPECT_EQ(call.data().code, code);
        EXPECT_EQ(call.text(), "will");
    }
}

TEST_P(OnewayTest, aSenderThatFillsTheSpaceIsToldOnceWhenItAskedFor) {
    for (const bool asked : {false, true, true}) {
        ASSERT_EQ(mClient.enableOnewaySpamDetection(asked), 0);
        int suspects = 0;
        for (int i = 0; i < 8; i++) {
            mClient.write(Commands().oneway(0, 1, std::string(63 * 1024, 'x')));
            suspects += mClient.next().command == BR_ONEWAY_SPAM_SUSPECT ? 1 : 0;
        }
        EXPECT_EQ(suspects, asked ? 1 : 0);
        for (int i = 0; i < 8; i++)
            (void)mServer.take();
    }
}

ON_EACH_DRIVER(OnewayTest);

}  // namespace
}  // namespace binderhost::tests
