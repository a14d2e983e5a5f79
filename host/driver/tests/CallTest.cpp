// SPDX-License-Identifier: Apache-2.0
//
// Two-way calls: exactly one answer each, nested calls, the choice of the thread.
#include <cerrno>
#include <thread>

#include "HubFixture.h"
#include "RawClient.h"

namespace binderhost::tests {
namespace {

constexpr uint64_t kPtr = 0x1000;

class CallTest : public HubFixture {
protected:
    /** Serves one call to handle 0 with the text of the call. */
    void echoOnce() {
        const Return call = mServer.expect(BR_TRANSACTION);
        mServer.write(Commands().freeBuffer(call).reply(call.text()));
        (void)mServer.expect(BR_TRANSACTION_COMPLETE);
    }
    /** The next call's first object becomes a handle that the server keeps. */
    uint32_t keepNode() {
        const Return call = mServer.expect(BR_TRANSACTION);
        const uint32_t handle = call.object(0).handle;
        mServer.write(Commands().count(BC_ACQUIRE, handle).freeBuffer(call).reply());
        (void)mServer.expect(BR_TRANSACTION_COMPLETE);
        return handle;
    }
    uint32_t giveNodeToServer() {
        mClient.write(Commands().call(0, 1, Payload().node(kPtr)));
        const uint32_t handle = keepNode();
        EXPECT_EQ(mClient.expectReply().text(), "");
        return handle;
    }
    void expectWorking() {
        mClient.write(Commands().call(0, 1, "still here"));
        echoOnce();
        EXPECT_EQ(mClient.expectReply().text(), "still here");
    }

    RawClient mServer{path()};
    RawClient mClient{path()};
    void SetUp() override { mServer.publish(); }
};

TEST_F(CallTest, aCallReachesTheContextManagerAndItsReplyComesBack) {
    mClient.write(Commands().call(0, 42, "hello"));
    const Return call = mServer.expect(BR_TRANSACTION);
    EXPECT_EQ(call.data().code, 42u);
    EXPECT_EQ(call.text(), "hello");
    EXPECT_EQ(call.data().sender_pid, getpid());
    EXPECT_EQ(call.data().sender_euid, geteuid());
    mServer.write(Commands().freeBuffer(call).reply("world"));
    const Return reply = mClient.expectReply();
    EXPECT_EQ(reply.text(), "world");
    EXPECT_EQ(reply.data().sender_pid, 0);
}

TEST_F(CallTest, aReplyThatAlsoReadsIsCompleteAtOnceAndTheNextCallArrives) {
    for (int round = 0; round < 3; round++) {
        mClient.write(Commands().call(0, 1, "a"));
        const Return call = mServer.expect(BR_TRANSACTION);
        ASSERT_EQ(mServer.exchange(Commands().freeBuffer(call).reply("b"), /*read=*/true), 0);
        EXPECT_EQ(mServer.next().command, uint32_t{BR_TRANSACTION_COMPLETE});
        EXPECT_EQ(mClient.expectReply().text(), "b");
    }
}

TEST_F(CallTest, aReplyToNobodyFailsAlsoWhenItReads) {
    ASSERT_EQ(mServer.exchange(Commands().reply("to nobody"), /*read=*/true), 0);
    EXPECT_EQ(mServer.next().command, uint32_t{BR_FAILED_REPLY});
    expectWorking();
}

TEST_F(CallTest, handlesThatAreNotHeldFailTheCall) {
    for (const uint32_t handle : {1u, 2u, 77u, 0x7fffffffu, 0xffffffffu}) {
        mClient.write(Commands().call(handle, 1));
        EXPECT_EQ(mClient.next().command, uint32_t{BR_FAILED_REPLY}) << handle;
        mClient.write(Commands().oneway(handle, 1));
        EXPECT_EQ(mClient.next().command, uint32_t{BR_FAILED_REPLY}) << handle;
    }
    expectWorking();
}

TEST_F(CallTest, theContextManagerCannotCallItself) {
    mServer.write(Commands().call(0, 1));
    EXPECT_EQ(mServer.next().command, uint32_t{BR_FAILED_REPLY});
}

TEST_F(CallTest, aSecondContextManagerIsRefusedAsBusy) {
    EXPECT_EQ(mClient.driver().becomeContextManager(), -EBUSY);
    EXPECT_EQ(mServer.driver().becomeContextManager(), -EBUSY);
    expectWorking();
}

TEST_F(CallTest, anUnknownCommandIsInvalidAndWhatStoodBeforeItIsDone) {
    Commands commands;
    commands.oneway(0, 5).put(uint32_t{0xdeadbeef});
    EXPECT_EQ(mClient.exchange(commands, /*read=*/false), -EINVAL);
    EXPECT_EQ(mServer.expect(BR_TRANSACTION).data().code, 5u);
}

TEST_F(CallTest, aCutCommandIsInvalid) {
    Commands commands;
    commands.put(uint32_t{BC_ACQUIRE}).put(uint16_t{0});
    EXPECT_EQ(mClient.exchange(commands, /*read=*/false), -EINVAL);
    expectWorking();
}

TEST_F(CallTest, aBufferThatIsNoneIsRefusedAndHarmsNobody) {
    for (const uint64_t address : {uint64_t{0}, uint64_t{8}, ~uint64_t{0}}) {
        mClient.write(Commands().freeBuffer(address));
    }
    expectWorking();
}

TEST_F(CallTest, aBufferFreedTwiceIsFreedOnce) {
    mClient.write(Commands().call(0, 1, "x"));
    echoOnce();
    const Return reply = mClient.expectReply();
    mClient.write(Commands().freeBuffer(reply));
    mClient.write(Commands().freeBuffer(reply));
    expectWorking();
}

TEST_F(CallTest, aCallToAProcessWithNoLooperWaitsForOne) {
    const uint32_t handle = giveNodeToServer();
    mServer.write(Commands().call(handle, 9));
    EXPECT_EQ(stats()["queued"], 2u);  // the call, and the caller's completion
    mClient.write(Commands().looper());
    const Return back = mClient.expect(BR_TRANSACTION);
    EXPECT_EQ(back.data().code, 9u);
    EXPECT_EQ(back.data().target.ptr, kPtr);
    mClient.write(Commands().freeBuffer(back).reply("late"));
    EXPECT_EQ(mServer.expectReply().text(), "late");
}

TEST_F(CallTest, aCallBackIntoAWaitingProcessGoesToTheWaitingThread) {
    const uint32_t handle = giveNodeToServer();
    RawClient pool(&mClient);
    Return fresh;
    std::thread looper([&] {
        pool.write(Commands().looper());
        fresh = pool.nextEvent();
    });
    awaitStat("idle", 1);
    mClient.write(Commands().call(0, 1));
    const Return call = mServer.expect(BR_TRANSACTION);
    mServer.write(Commands().call(handle, 2, "nested"));
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    const Return nested = mClient.expect(BR_TRANSACTION);
    EXPECT_EQ(nested.text(), "nested");
    EXPECT_EQ(nested.data().sender_pid, getpid());
    mClient.write(Commands().freeBuffer(nested).reply("inner"));
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    EXPECT_EQ(mServer.expectReply().text(), "inner");
    // A one-way call is fresh work, which the waiting thread never gets.
    mServer.write(Commands().oneway(handle, 3));
    looper.join();
    EXPECT_EQ(fresh.data().code, 3u);
    (void)mServer.expect(BR_TRANSACTION_COMPLETE);
    mServer.write(Commands().freeBuffer(call).reply("outer"));
    EXPECT_EQ(mClient.expect(BR_REPLY).text(), "outer");
}

TEST_F(CallTest, aChainThroughThreeProcessesComesBackToItsFirstThread) {
    RawClient middle(path());
    const uint32_t clientHandle = giveNodeToServer();
    middle.write(Commands().call(0, 1, Payload().node(kPtr + 8)));
    const uint32_t middleHandle = keepNode();
    (void)middle.expectReply();

    mClient.write(Commands().call(0, 1));
    const Return first = mServer.expect(BR_TRANSACTION);
    mServer.write(Commands().call(middleHandle, 2, Payload().handle(clientHandle)));
    middle.write(Commands().looper());
    const Return second = middle.expect(BR_TRANSACTION);
    const uint32_t back = second.object(0).handle;
    middle.write(Commands().call(back, 3));
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    const Return third = mClient.expect(BR_TRANSACTION);
    EXPECT_EQ(third.data().target.ptr, kPtr);
    mClient.write(Commands().freeBuffer(third).reply("3"));
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    EXPECT_EQ(middle.expectReply().text(), "3");
    middle.write(Commands().freeBuffer(second).reply("2"));
    EXPECT_EQ(mServer.expectReply().text(), "2");
    mServer.write(Commands().freeBuffer(first).reply("1"));
    EXPECT_EQ(mClient.expect(BR_REPLY).text(), "1");
}

TEST_F(CallTest, aSecondCallWhileTheFirstIsUnansweredFails) {
    mClient.write(Commands().call(0, 1));
    mClient.write(Commands().call(0, 2));
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    (void)mClient.expect(BR_FAILED_REPLY);
    const Return call = mServer.expect(BR_TRANSACTION);
    EXPECT_EQ(call.data().code, 1u);
    mServer.write(Commands().freeBuffer(call).reply("1"));
    EXPECT_EQ(mClient.expect(BR_REPLY).text(), "1");
}

TEST_F(CallTest, theLooperThatWaitedLastIsTakenFirst) {
    std::vector<Return> got(2);
    std::vector<std::thread> pool;
    for (size_t i = 0; i < got.size(); i++) {
        pool.emplace_back([this, &got, i] {
            RawClient me(&mServer);
            me.write(Commands().looper());
            got[i] = me.expect(BR_TRANSACTION);
            me.write(Commands().freeBuffer(got[i]).reply());
            (void)me.expect(BR_TRANSACTION_COMPLETE);
        });
        awaitStat("idle", i + 1);
    }
    for (uint32_t code = 1; code <= 2; code++) {
        mClient.write(Commands().call(0, code));
        (void)mClient.expectReply();
        pool[2 - code].join();
    }
    EXPECT_EQ(got[1].data().code, 1u);
    EXPECT_EQ(got[0].data().code, 2u);
}

TEST_F(CallTest, aLooperIsAskedForOnlyWhenNoneWaitsAndFewerThanTheMaximumWereStarted) {
    ASSERT_EQ(mServer.driver().setMaxThreads(1), 0);
    auto callAndServe = [this](RawClient* server) {
        mClient.write(Commands().call(0, 1));
        const Return first = server->next();
        const bool asked = first.command == BR_SPAWN_LOOPER;
        const Return call = asked ? server->next() : first;
        server->write(Commands().freeBuffer(call).reply());
        (void)server->expect(BR_TRANSACTION_COMPLETE);
        (void)mClient.expectReply();
        return asked;
    };
    EXPECT_TRUE(callAndServe(&mServer));
    EXPECT_FALSE(callAndServe(&mServer)) << "one request at a time";
    mServer.write(Commands().put(uint32_t{BC_REGISTER_LOOPER}));
    EXPECT_FALSE(callAndServe(&mServer)) << "the maximum has been started";
    ASSERT_EQ(mServer.driver().setMaxThreads(2), 0);
    EXPECT_TRUE(callAndServe(&mServer));
}

TEST_F(CallTest, noLooperIsAskedForWhileAnotherWaits) {
    ASSERT_EQ(mServer.driver().setMaxThreads(4), 0);
    std::thread idle([this] {
        RawClient me(&mServer);
        me.write(Commands().looper());
        const Return second = me.next();
        EXPECT_EQ(second.command, uint32_t{BR_SPAWN_LOOPER}) << "now none waits";
    });
    awaitStat("idle", 1);
    std::thread taken([this] {
        RawClient me(&mServer);
        me.write(Commands().looper());
        EXPECT_EQ(me.next().command, uint32_t{BR_TRANSACTION});
    });
    awaitStat("idle", 2);
    mClient.write(Commands().call(0, 1));
    taken.join();
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
    (void)mClient.expect(BR_DEAD_REPLY);  // the thread has gone with the call
    mClient.write(Commands().call(0, 2));
    idle.join();
}

}  // namespace
}  // namespace binderhost::tests
