// SPDX-License-Identifier: Apache-2.0
//
// Nodes, handles and who is told about references.
#include "DriverFixture.h"

namespace binderhost::tests {
namespace {

class ReferenceTest : public PairFixture {
protected:
    uint32_t give(uint64_t ptr) { return mClient.giveNode(&mServer, ptr); }
};

TEST_P(ReferenceTest, theSenderIsToldToHoldItsNodeBeforeTheAnswer) {
    mClient.write(Commands().call(0, 1, Payload().node(kPtr, kCookie)));
    (void)mServer.expect(BR_TRANSACTION);
    mServer.write(Commands().reply());
    EXPECT_EQ(mClient.next().command, uint32_t{BR_INCREFS});
    const Return acquire = mClient.next();
    EXPECT_EQ(acquire.command, uint32_t{BR_ACQUIRE});
    EXPECT_EQ(acquire.as<binder_ptr_cookie>().ptr, kPtr);
    EXPECT_EQ(acquire.as<binder_ptr_cookie>().cookie, kCookie);
    EXPECT_EQ(mClient.next().command, uint32_t{BR_TRANSACTION_COMPLETE});
    EXPECT_EQ(mClient.next().command, uint32_t{BR_REPLY});
}

TEST_P(ReferenceTest, aNodeThatIsLetGoBeforeItsSenderReadsIsNotSpokenOf) {
    mClient.write(Commands().call(0, 1, Payload().node(kPtr, kCookie)));
    (void)mServer.serve();
    EXPECT_EQ(mClient.next().command, uint32_t{BR_TRANSACTION_COMPLETE});
    EXPECT_EQ(mClient.next().command, uint32_t{BR_REPLY});
}

TEST_P(ReferenceTest, aReplierIsToldToHoldTheNodeInItsReplyBeforeItsCompletion) {
    mClient.write(Commands().call(0, 1));
    (void)mServer.expect(BR_TRANSACTION);
    ASSERT_EQ(mServer.exchange(Commands().reply(Payload().node(kPtr, kCookie)), /*read=*/true), 0);
    for (const uint32_t command : {BR_INCREFS, BR_ACQUIRE, BR_TRANSACTION_COMPLETE})
        EXPECT_EQ(mServer.next().command, command);
    const flat_binder_object object = mClient.expectReply().object(0);
    EXPECT_EQ(object.hdr.type, uint32_t{BINDER_TYPE_HANDLE});
    EXPECT_EQ(object.handle, 1u);
    EXPECT_EQ(object.cookie, 0u) << "the owner's addresses are nobody's business";
}

TEST_P(ReferenceTest, theOwnerIsToldToLetGoAfterTheLastReference) {
    const uint32_t handle = give(kPtr);
    mServer.post(handle, 1);
    mClient.write(Commands().looper());
    (void)mClient.take();
    mServer.write(Commands().count(BC_RELEASE, handle));
    EXPECT_EQ(mClient.next().command, uint32_t{BR_RELEASE});
    EXPECT_EQ(mClient.next().command, uint32_t{BR_DECREFS});
    expectStat("nodes", 1u);  // the context manager's own
    expectStat("handles", 0u);
}

TEST_P(ReferenceTest, aWeakReferenceOutlivesTheStrongOnesAndCannotBeCalled) {
    const uint32_t handle = give(kPtr);
    mServer.write(Commands().count(BC_INCREFS, handle).count(BC_RELEASE, handle));
    mClient.write(Commands().looper());
    EXPECT_EQ(mClient.next().command, uint32_t{BR_RELEASE});
    mServer.write(Commands().call(handle, 1));
    EXPECT_EQ(mServer.next().command, uint32_t{BR_FAILED_REPLY});
    mServer.write(Commands().count(BC_ACQUIRE, handle).call(handle, 1));
    EXPECT_EQ(mServer.next().command, uint32_t{BR_FAILED_REPLY}) << "nothing keeps it alive";
    mServer.write(Commands().count(BC_DECREFS, handle));
    EXPECT_EQ(mClient.next().command, uint32_t{BR_DECREFS});
}

TEST_P(ReferenceTest, releasesBeyondTheCountAndOfUnknownHandlesAreIgnored) {
    const uint32_t handle = give(kPtr);
    for (const uint32_t command : {BC_RELEASE, BC_DECREFS, BC_ACQUIRE, BC_INCREFS})
        mServer.write(Commands().count(command, 12345));
    mServer.write(Commands().count(BC_DECREFS, handle).count(BC_DECREFS, handle));
    expectStat("handles", 1u);
    mServer.post(handle, 1);
}

TEST_P(ReferenceTest, aNodeHasOneHandleInAProcessTheLowestThatIsFree) {
    EXPECT_EQ(give(kPtr), 1u);
    EXPECT_EQ(give(kPtr), 1u);
    mServer.write(Commands().count(BC_RELEASE, 1));  // one of two
    EXPECT_EQ(give(kPtr + 8), 2u);
    EXPECT_EQ(give(kPtr + 16), 3u);
    mServer.write(Commands().count(BC_RELEASE, 3).count(BC_RELEASE, 1));
    expectStat("handles", 1u);
    EXPECT_EQ(give(kPtr + 24), 1u);
    EXPECT_EQ(give(kPtr + 32), 3u);
    EXPECT_EQ(give(kPtr + 40), 4u);
}

TEST_P(ReferenceTest, aNodeThatComesHomeIsTheOwnersObjectAgain) {
    mClient.write(Commands().call(0, 1, Payload().node(kPtr, kCookie)));
    const Return call = mServer.expect(BR_TRANSACTION);
    const uint32_t handle = call.object(0).handle;
    mServer.write(Commands().freeBuffer(call).reply(Payload().handle(handle)));
    // The handle went with the buffer, so there is none left to send.
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    (void)mClient.expect(BR_FAILED_REPLY);
    (void)mServer.expect(BR_TRANSACTION_COMPLETE);

    mClient.write(Commands().call(0, 1, Payload().node(kPtr, kCookie)));
    const Return again = mServer.expect(BR_TRANSACTION);
    mServer.write(Commands().reply(Payload().handle(again.object(0).handle)));
    const flat_binder_object home = mClient.expectReply().object(0);
    EXPECT_EQ(home.hdr.type, uint32_t{BINDER_TYPE_BINDER});
    EXPECT_EQ(home.binder, kPtr);
    EXPECT_EQ(home.cookie, kCookie);
}

TEST_P(ReferenceTest, aHandlePassedOnIsAHandleOfTheSameNodeThereAlsoOfADeadOne) {
    PeerClient third(path());
    const uint32_t handle = give(kPtr);
    third.write(Commands().call(third.takeNode(&mServer, Payload().handle(handle)), 77));
    mClient.write(Commands().looper());
    const Return direct = mClient.serve();
    EXPECT_EQ(direct.data().code, 77u);
    EXPECT_EQ(direct.data().target.ptr, kPtr);
    (void)third.expectReply();
    mClient.kill();
    awaitStat("processes", 2);
    PeerClient fourth(path());
    fourth.write(Commands().call(fourth.takeNode(&mServer, Payload().handle(handle)), 1));
    (void)fourth.expect(BR_DEAD_REPLY);
}

TEST_P(ReferenceTest, theContextManagerHoldsNoHandleOnItselfAndOthersHaveZero) {
    mClient.write(Commands().count(BC_INCREFS, 0).count(BC_ACQUIRE, 0));
    expectStat("handles", 1u);
    mClient.write(Commands().call(0, 1, Payload().handle(0)));
    const flat_binder_object own = mServer.expect(BR_TRANSACTION).object(0);
    EXPECT_EQ(own.hdr.type, uint32_t{BINDER_TYPE_BINDER});
    EXPECT_EQ(own.binder, 0u);
}

ON_EACH_DRIVER(ReferenceTest);

}  // namespace
}  // namespace binderhost::tests
