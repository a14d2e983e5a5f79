// SPDX-License-Identifier: Apache-2.0
//
// Two-way calls: exactly one answer each, nested calls, the choice of the thread.
#include <cerrno>

#include "DriverFixture.h"

namespace binderhost::tests {
namespace {

class CallTest : public PairFixture {};

TEST_P(CallTest, aCallReachesTheContextManagerAndItsReplyComesBack) {
    mClient.write(Commands().call(0, 42, "hello"));
    const Return call = mServer.serve("world");
    EXPECT_EQ(call.data().code, 42u);
    EXPECT_EQ(call.text(), "hello");
    EXPECT_EQ(call.data().sender_pid, mClient.pid());
    EXPECT_EQ(call.data().sender_euid, geteuid());
    const Return reply = mClient.expectReply();
    EXPECT_EQ(reply.text(), "world");
    EXPECT_EQ(reply.data().sender_pid, 0);
}

TEST_P(CallTest, aReplyThatAlsoReadsIsCompleteAtOnceAndTheNextCallArrives) {
    for (int round = 0; round < 3; round++) {
        mClient.write(Commands().call(0, 1, "a"));
        const Return call = mServer.expect(BR_TRANSACTION);
        ASSERT_EQ(mServer.exchange(Commands().freeBuffer(call).reply("b"), /*read=*/true), 0);
        EXPECT_EQ(mServer.next().command, uint32_t{BR_TRANSACTION_COMPLETE});
        EXPECT_EQ(mClient.expectReply().text(), "b");
    }
}

TEST_P(CallTest, whatCannotBeIsRefusedAndHarmsNobody) {
    ASSERT_EQ(mServer.exchange(Commands().reply("to nobody"), /*read=*/true), 0);
    EXPECT_EQ(mServer.next().command, uint32_t{BR_FAILED_REPLY});
    for (const uint32_t handle : {1u, 77u, 0x7fffffffu, 0xffffffffu}) {
        for (const uint32_t flags : {0u, uint32_t{TF_ONE_WAY}}) {
            mClient.write(Commands().call(handle, 1, {}, flags));
            EXPECT_EQ(mClient.next().command, uint32_t{BR_FAILED_REPLY}) << handle;
        }
    }
    mServer.write(Commands().call(0, 1));
    EXPECT_EQ(mServer.next().command, uint32_t{BR_FAILED_REPLY}) << "it would call itself";
    EXPECT_EQ(mClient.becomeContextManager(), -EBUSY);
    EXPECT_EQ(mServer.becomeContextManager(), -EBUSY);
    mClient.write(Commands().freeBuffer(uint64_t{8}).freeBuffer(~uint64_t{0}));
    mClient.write(Commands().call(0, 1, "freed twice"));
    (void)mServer.serve();
    const Return reply = mClient.expectReply();
    mClient.write(Commands().freeBuffer(reply));
    mClient.write(Commands().freeBuffer(reply));
    expectWorking();
}

TEST_P(CallTest, anUnknownCommandIsInvalidAndWhatStoodBeforeItIsDone) {
    Commands commands;
    commands.oneway(0, 5).put(uint32_t{0xdeadbeef});
    EXPECT_EQ(mClient.exchange(commands, /*read=*/false), -EINVAL);
    EXPECT_EQ(mServer.expect(BR_TRANSACTION).data().code, 5u);
}

TEST_P(CallTest, aCallToAProcessWithNoLooperWaitsForOne) {
    const uint32_t handle = mClient.giveNode(&mServer);
    mServer.write(Commands().call(handle, 9));
    expectStat("queued", 2u);  // the call, and the caller's completion
    mClient.write(Commands().looper());
    const Return back = mClient.serve("late");
    EXPECT_EQ(back.data().code, 9u);
    EXPECT_EQ(back.data().target.ptr, kPtr);
    EXPECT_EQ(mServer.expectReply().text(), "late");
}

TEST_P(CallTest, aCallBackIntoAWaitingProcessGoesToTheWaitingThread) {
    const uint32_t handle = mClient.giveNode(&mServer);
    PeerClient pool(&mClient);
    pool.write(Commands().looper());
    pool.beginRead();
    awaitStat("idle", 1);
    mClient.write(Commands().call(0, 1));
    const Return call = mServer.expect(BR_TRANSACTION);
    mServer.write(Commands().call(handle, 2, "nested"));
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    const Return nested = mClient.serve("inner");
    EXPECT_EQ(nested.text(), "nested");
    EXPECT_EQ(nested.data().sender_pid, mServer.pid());
    EXPECT_EQ(mServer.expectReply().text(), "inner");
    // A one-way call is fresh work, which the waiting thread never gets.
    mServer.write(Commands().oneway(handle, 3));
    EXPECT_EQ(pool.expect(BR_TRANSACTION).data().code, 3u);
    (void)mServer.expect(BR_TRANSACTION_COMPLETE);
    mServer.write(Commands().freeBuffer(call).reply("outer"));
    EXPECT_EQ(mClient.expect(BR_REPLY).text(), "outer");
}

TEST_P(CallTest, aChainThroughThreeProcessesComesBackToItsFirstThread) {
    PeerClient middle(path());
    const uint32_t clientHandle = mClient.giveNode(&mServer);
    const uint32_t middleHandle = middle.giveNode(&mServer, kPtr + 8);
    mClient.write(Commands().call(0, 1));
    const Return first = mServer.expect(BR_TRANSACTION);
    mServer.write(Commands().call(middleHandle, 2, Payload().handle(clientHandle)));
    middle.write(Commands().looper());
    const Return second = middle.expect(BR_TRANSACTION);
    middle.write(Commands().call(second.object(0).handle, 3));
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    EXPECT_EQ(mClient.serve("3").data().target.ptr, kPtr);
    EXPECT_EQ(middle.expectReply().text(), "3");
    middle.write(Commands().freeBuffer(second).reply("2"));
    EXPECT_EQ(mServer.expectReply().text(), "2");
    mServer.write(Commands().freeBuffer(first).reply("1"));
    EXPECT_EQ(mClient.expect(BR_REPLY).text(), "1");
}

TEST_P(CallTest, aSecondCallWhileTheFirstIsUnansweredFails) {
    mClient.write(Commands().call(0, 1));
    mClient.write(Commands().call(0, 2));
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    (void)mClient.expect(BR_FAILED_REPLY);
    EXPECT_EQ(mServer.serve("1").data().code, 1u);
    EXPECT_EQ(mClient.expect(BR_REPLY).text(), "1");
}

TEST_P(CallTest, theLooperThatWaitedLastIsTakenFirst) {
    PeerClient pool[] = {PeerClient(&mServer), PeerClient(&mServer)};
    for (uint64_t i = 0; i < 2; i++) {
        pool[i].write(Commands().looper());
        pool[i].beginRead();
        awaitStat("idle", i + 1);
    }
    for (uint32_t code = 1; code <= 2; code++) {
        mClient.write(Commands().call(0, code));
        EXPECT_EQ(pool[2 - code].serve().data().code, code);
        (void)mClient.expectReply();
    }
}

TEST_P(CallTest, aLooperIsAskedForOnlyWhenNoneWaitsAndFewerThanTheMaximumWereStarted) {
    ASSERT_EQ(mServer.setMaxThreads(2), 0);
    auto callAndServe = [this] {
        mClient.write(Commands().call(0, 1));
        const Return first = mServer.next();
        const bool asked = first.command == BR_SPAWN_LOOPER;
        const Return call = asked ? mServer.next() : first;
        mServer.write(Commands().freeBuffer(call).reply());
        (void)mServer.expect(BR_TRANSACTION_COMPLETE);
        (void)mClient.expectReply();
        return asked;
    };
    EXPECT_TRUE(callAndServe());
    EXPECT_FALSE(callAndServe()) << "one request at a time";
    mServer.write(Commands().put(uint32_t{BC_REGISTER_LOOPER}));
    EXPECT_FALSE(callAndServe()) << "it was one already, and is not the one asked for";
    PeerClient(&mServer).write(Commands().put(uint32_t{BC_REGISTER_LOOPER}));
    EXPECT_TRUE(callAndServe());
    PeerClient(&mServer).write(Commands().put(uint32_t{BC_REGISTER_LOOPER}));
    EXPECT_FALSE(callAndServe()) << "the maximum has been started";
}

TEST_P(CallTest, noLooperIsAskedForWhileAnotherWaits) {
    ASSERT_EQ(mServer.setMaxThreads(4), 0);
    PeerClient idle(&mServer);
    idle.write(Commands().looper());
    idle.beginRead();
    awaitStat("idle", 1);
    {
        PeerClient taken(&mServer);
        taken.write(Commands().looper());
        taken.beginRead();
        awaitStat("idle", 2);
        mClient.write(Commands().call(0, 1));
        EXPECT_EQ(taken.next().command, uint32_t{BR_TRANSACTION});
    }
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    (void)mClient.expect(BR_DEAD_REPLY);  // the thread has gone with the call
    mClient.write(Commands().call(0, 2));
    EXPECT_EQ(idle.next().command, uint32_t{BR_SPAWN_LOOPER}) << "now none waits";
}

ON_EACH_DRIVER(CallTest);

}  // namespace
}  // namespace binderhost::tests
