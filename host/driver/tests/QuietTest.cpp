// SPDX-License-Identifier: Apache-2.0
//
// What counts as in flight, in a hub without sockets: step by step, each thing on its way.
#include "hub/Quiet.h"

#include <functional>

#include "HubCoreFixture.h"

namespace binderhost::hub {
namespace {

constexpr pid_t kServer = 1, kClient = 2;

class QuietTest : public HubCoreTest {
protected:
    [[nodiscard]] bool quiet(const std::set<pid_t>& leftOut = {}) const {
        return !inFlight(mHub, leftOut);
    }
    /** While all links are there: who waits for an answer is told that there is none. */
    void TearDown() override {
        while (!mHub.processes().empty())
            mHub.closeProcess(mHub.processes().back().get());
    }
    /** The server's thread serves. */
    void serve() { mServer.read(Packed().put(BC_ENTER_LOOPER)); }
    [[nodiscard]] static uint64_t lastBuffer(const Peer& peer) { return peer.got.back().buffer; }
};

TEST_F(QuietTest, aCallIsInFlightUntilItsAnswerHasBeenRead) {
    serve();
    EXPECT_TRUE(quiet());
    mClient.write(Packed().call(BC_TRANSACTION, 0, 1));
    EXPECT_FALSE(quiet()) << "running";
    mServer.write(Packed().reply());
    EXPECT_FALSE(quiet()) << "not read";
    mClient.read();
    EXPECT_FALSE(quiet()) << "the server is not back at its wait";
    mServer.read();
    EXPECT_FALSE(quiet()) << "it has heard that its reply is complete";
    mServer.read();
    EXPECT_TRUE(quiet());
}

TEST_F(QuietTest, aCallThatNobodyTakesIsInFlight) {
    mClient.write(Packed().call(BC_TRANSACTION, 0, 1));
    EXPECT_FALSE(quiet());
    EXPECT_TRUE(quiet({kServer}));
    EXPECT_FALSE(quiet({kClient})) << "who waits is left out, what it waits for is not";
}

TEST_F(QuietTest, aOneWayCallIsInFlightUntilItsBufferIsFreed) {
    serve();
    mClient.write(Packed().oneway(0, 1).oneway(0, 2));
    mClient.read();
    const uint64_t first = lastBuffer(mServer);
    EXPECT_FALSE(quiet());
    mServer.read(Packed().put(BC_FREE_BUFFER, first));
    EXPECT_FALSE(quiet()) << "the second";
    const uint64_t second = lastBuffer(mServer);
    mServer.read();
    EXPECT_FALSE(quiet()) << "its thread waits, but its buffer is there";
    EXPECT_TRUE(mServer.thread->waiting);
    mHub.cancelRead(mServer.thread);
    mServer.read(Packed().put(BC_FREE_BUFFER, second));
    EXPECT_TRUE(quiet());
}

TEST_F(QuietTest, aNoticeOfADeathIsInFlightUntilItIsReadAndConfirmed) {
    Peer mortal(&mHub, 3);
    const uint32_t handle = give(&mortal);
    mServer.read(Packed().put(BC_REQUEST_DEATH_NOTIFICATION, handle, uint64_t{7}));
    EXPECT_TRUE(quiet());
    mHub.cancelRead(mServer.thread);
    mServer.write(Packed().put(BC_EXIT_LOOPER));
    EXPECT_TRUE(quiet());
    mHub.closeProcess(mortal.process);
    EXPECT_FALSE(quiet()) << "nobody has read it";
    EXPECT_TRUE(quiet({kServer}));
    serve();
    EXPECT_EQ(mServer.commands().back(), uint32_t{BR_DEAD_BINDER});
    mServer.read();
    EXPECT_FALSE(quiet()) << "the thread waits, but has confirmed nothing";
    EXPECT_TRUE(quiet({kServer}));
    mHub.cancelRead(mServer.thread);
    mServer.read(Packed().put(BC_DEAD_BINDER_DONE, uint64_t{7}));
    EXPECT_TRUE(quiet());
}

TEST_F(QuietTest, aPoolThreadThatDoesNotWaitIsAtWork) {
    mServer.write(Packed().put(BC_ENTER_LOOPER));
    EXPECT_FALSE(quiet());
    EXPECT_TRUE(quiet({kServer}));
    mServer.read();
    EXPECT_TRUE(quiet());
    mHub.cancelRead(mServer.thread);
    EXPECT_FALSE(quiet());
    mServer.read(Packed().put(BC_EXIT_LOOPER));
    EXPECT_TRUE(quiet());
}

TEST_F(QuietTest, noticesAboutReferencesDoNotCount) {
    const uint32_t handle = give(&mClient);
    mServer.waitForWork();
    mHub.cancelRead(mServer.thread);
    mServer.read(Packed().put(BC_RELEASE, handle).put(BC_DECREFS, handle));
    EXPECT_GT(stat("queued"), 0u) << "nobody reads it";
    EXPECT_TRUE(quiet());
}

/** client ── call ──▶ middle ── call ──▶ server, which hangs. */
class ChainTest : public QuietTest {
protected:
    static constexpr pid_t kMiddle = 3;
    Peer mMiddle{&mHub, kMiddle};
    Peer mOther{&mHub, 4};
    uint32_t mToMiddle = 0;
    uint32_t mOthersToMiddle = 0;

    void SetUp() override {
        const uint32_t handle = give(&mMiddle);
        mToMiddle = handOn(handle, &mClient);
        mOthersToMiddle = handOn(handle, &mOther);
        mMiddle.read(Packed().put(BC_ENTER_LOOPER));
        ASSERT_EQ(inFlight(mHub, {}), std::nullopt);
    }
    /** The server gives its handle to the peer. */
    uint32_t handOn(uint32_t handle, Peer* peer) {
        mServer.waitForWork();
        mServer.got.clear();
        peer->read(Packed().call(BC_TRANSACTION, 0, 1));
        mServer.read(
                Packed().put(BC_FREE_BUFFER, lastBuffer(mServer)).reply(Payload().handle(handle)));
        mServer.waitForWork();
        const uint32_t given = peer->process->nextHandle - 1;
        peer->write(Packed().put(BC_ACQUIRE, given).put(BC_FREE_BUFFER, lastBuffer(*peer)));
        return given;
    }
    /** The middle, at work on what it was sent, calls the server. */
    void hangInServer() {
        ASSERT_EQ(mMiddle.got.back().command, uint32_t{BR_TRANSACTION});
        mMiddle.read(Packed().call(BC_TRANSACTION, 0, 2));
        ASSERT_EQ(mServer.got.back().command, uint32_t{BR_TRANSACTION});
        EXPECT_FALSE(quiet());
        EXPECT_FALSE(quiet({kClient}));
        EXPECT_FALSE(quiet({kMiddle})) << "the server is at work for it";
    }
};

TEST_F(ChainTest, whatWaitsInTurnForOneThatIsLeftOutIsLeftOut) {
    for (const bool oneway : {false, true}) {
        SCOPED_TRACE(oneway ? "one-way calls, one behind the other" : "a call");
        if (oneway) {
            mClient.read(Packed().oneway(mToMiddle, 1).oneway(mToMiddle, 2));
        } else {
            mClient.read(Packed().call(BC_TRANSACTION, mToMiddle, 1));
        }
        hangInServer();
        EXPECT_TRUE(quiet({kServer}));
        mServer.read(Packed().put(BC_FREE_BUFFER, lastBuffer(mServer)).reply());
        EXPECT_FALSE(quiet({kServer})) << "the middle has its answer and goes on";
        if (oneway) return;
        mServer.waitForWork();
        mMiddle.write(Packed().reply());
        mMiddle.waitForWork();
        ASSERT_EQ(inFlight(mHub, {}), std::nullopt);
    }
}

TEST_F(ChainTest, soIsTheTreatmentOfADeath) {
    mHub.cancelRead(mServer.thread);
    mHub.cancelRead(mMiddle.thread);
    const uint32_t handle = handOn(give(&mOther), &mMiddle);
    mMiddle.read(Packed().put(BC_REQUEST_DEATH_NOTIFICATION, handle, uint64_t{7}));
    mHub.closeProcess(mOther.process);
    ASSERT_EQ(mMiddle.got.back().command, uint32_t{BR_DEAD_BINDER});
    mMiddle.read(Packed().call(BC_TRANSACTION, 0, 2));
    EXPECT_FALSE(quiet());
    EXPECT_TRUE(quiet({kServer}));
    mServer.read(Packed().put(BC_FREE_BUFFER, lastBuffer(mServer)).reply());
    EXPECT_FALSE(quiet({kServer}));
}

TEST_F(ChainTest, soIsWhatWaitsForAPoolWhoseThreadsAllDo) {
    for (const bool mayGrow : {false, true}) {
        SCOPED_TRACE(mayGrow ? "a further thread was asked for" : "there is no further thread");
        mHub.setMaxThreads(mMiddle.process, mayGrow ? 1 : 0);
        mClient.read(Packed().call(BC_TRANSACTION, mToMiddle, 1));
        hangInServer();
        mOther.read(Packed().call(BC_TRANSACTION, mOthersToMiddle, 1));
        EXPECT_FALSE(quiet());
        EXPECT_EQ(quiet({kServer}), !mayGrow);
        // All come to their end.
        mServer.read(Packed().put(BC_FREE_BUFFER, lastBuffer(mServer)).reply());
        mServer.waitForWork();
        for (int calls = 0; calls < 2; calls++) {
            mMiddle.write(Packed().reply());
            mMiddle.waitForWork();
        }
        ASSERT_EQ(inFlight(mHub, {}), std::nullopt);
    }
}

}  // namespace
}  // namespace binderhost::hub
