// SPDX-License-Identifier: Apache-2.0
//
// One-way calls: order, identity, room.
#include <algorithm>

#include "DriverFixture.h"

namespace binderhost::tests {
namespace {

constexpr uint64_t kPtr = 0x1000;

class OnewayTest : public DriverFixture {
protected:
    PeerClient mServer{path()};
    PeerClient mClient{path()};
    void SetUp() override { mServer.publish(); }
};

TEST_P(OnewayTest, theSenderIsDoneAtOnceAndTheReceiverSeesNoPid) {
    mClient.write(Commands().oneway(0, 7, "note"));
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    const Return call = mServer.expect(BR_TRANSACTION);
    EXPECT_EQ(call.text(), "note");
    EXPECT_EQ(call.data().flags & TF_ONE_WAY, uint32_t{TF_ONE_WAY});
    EXPECT_EQ(call.data().sender_pid, 0);
    EXPECT_EQ(call.data().sender_euid, geteuid());
}

TEST_P(OnewayTest, theNextCallOfANodeLeavesWhenTheBufferOfTheOneBeforeIsFreed) {
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

TEST_P(OnewayTest, twoNodesOfAProcessRunTheirOnewayCallsAtOnce) {
    mClient.write(Commands().call(0, 1));
    const Return call = mServer.expect(BR_TRANSACTION);
    mServer.write(Commands().freeBuffer(call).reply(Payload().node(kPtr).node(kPtr + 8)));
    const Return nodes = mClient.expectReply();
    for (size_t i = 0; i < 2; i++) {
        mClient.write(Commands().oneway(nodes.object(i).handle, 10));
        (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    }
    (void)mServer.expect(BR_TRANSACTION_COMPLETE);
    EXPECT_EQ(mServer.expect(BR_TRANSACTION).data().target.ptr, kPtr);
    EXPECT_EQ(mServer.expect(BR_TRANSACTION).data().target.ptr, kPtr + 8);
}

TEST_P(OnewayTest, aThousandCallsArriveInTheOrderOfSending) {
    for (uint32_t code = 0; code < 1000; code++) {
        mClient.write(Commands().oneway(0, code));
        (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    }
    for (uint32_t code = 0; code < 1000; code++) {
        const Return call = mServer.expect(BR_TRANSACTION);
        ASSERT_EQ(call.data().code, code);
        mServer.write(Commands().freeBuffer(call));
    }
}

TEST_P(OnewayTest, theSendersCallFailsWhenHalfOfTheBufferIsFullAndWorksAgainWhenItIsFreed) {
    const std::string block(64 * 1024 - 1024, 'x');  // eight fill the half but for some crumbs
    for (int i = 0; i < 8; i++) {
        mClient.write(Commands().oneway(0, 1, block));
        (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    }
    mClient.write(Commands().oneway(0, 2, block));
    (void)mClient.expect(BR_FAILED_REPLY);
    // The receiver is unharmed: the other half takes two-way calls as before.
    mClient.write(Commands().call(0, 3, std::string(400 * 1024, 'y')));
    const Return first = mServer.expect(BR_TRANSACTION);
    EXPECT_EQ(first.data().code, 1u);
    const Return call = mServer.expect(BR_TRANSACTION);
    EXPECT_EQ(call.data().code, 3u);
    mServer.write(Commands().freeBuffer(call).reply());
    (void)mServer.expect(BR_TRANSACTION_COMPLETE);
    (void)mClient.expectReply();
    mServer.write(Commands().freeBuffer(first));
    awaitStat("buffers", 8);  // seven blocks and the reply
    mClient.write(Commands().oneway(0, 4, block));
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
}

TEST_P(OnewayTest, callsOfASenderThatHasDiedAreDeliveredAllTheSame) {
    {
        PeerClient mortal(path());
        for (uint32_t code = 1; code <= 2; code++) {
            mortal.write(Commands().oneway(0, code, "will"));
            (void)mortal.expect(BR_TRANSACTION_COMPLETE);
        }
    }
    awaitStat("processes", 2);
    for (uint32_t code = 1; code <= 2; code++) {
        const Return call = mServer.expect(BR_TRANSACTION);
        EXPECT_EQ(call.data().code, code);
        EXPECT_EQ(call.text(), "will");
        mServer.write(Commands().freeBuffer(call));
    }
}

TEST_P(OnewayTest, aSenderThatFillsTheSpaceIsToldOnceWhenItAskedFor) {
    for (const bool asked : {false, true}) {
        ASSERT_EQ(mClient.enableOnewaySpamDetection(asked), 0);
        std::vector<uint32_t> told;
        for (int i = 0; i < 8; i++) {
            mClient.write(Commands().oneway(0, 1, std::string(63 * 1024, 'x')));
            told.push_back(mClient.next().command);
        }
        const auto suspects = std::count(told.begin(), told.end(), BR_ONEWAY_SPAM_SUSPECT);
        EXPECT_EQ(suspects, asked ? 1 : 0);
        for (int i = 0; i < 8; i++) {
            const Return call = mServer.expect(BR_TRANSACTION);
            mServer.write(Commands().freeBuffer(call));
        }
    }
}

ON_EACH_DRIVER(OnewayTest);

}  // namespace
}  // namespace binderhost::tests
