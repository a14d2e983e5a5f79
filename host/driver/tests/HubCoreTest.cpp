// SPDX-License-Identifier: Apache-2.0
//
// The hub without sockets: interleavings and bounds that processes cannot force.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <utility>

#include "HubCoreFixture.h"

namespace binderhost::hub {
namespace {

TEST_F(HubCoreTest, anEmptyTwoWayCallIsFourRecordsInAll) {
    mServer.read(Packed().put(BC_ENTER_LOOPER));
    mClient.read(Packed().call(BC_TRANSACTION, 0, 1));
    EXPECT_EQ(mServer.records, 1);
    EXPECT_EQ(mClient.records, 0) << "the completion rides on the reply";
    const uint64_t buffer = mServer.got.back().buffer;
    const Packed answer = Packed().put(BC_FREE_BUFFER, buffer).reply();
    EXPECT_TRUE(mServer.feed(answer.bytes, frame::kRead | frame::kCompletesLocally));
    EXPECT_EQ(mServer.records, 1);
    EXPECT_EQ(mClient.records, 1);
    EXPECT_EQ(mClient.commands(), (Seen{BR_TRANSACTION_COMPLETE, BR_REPLY}));
    EXPECT_EQ(stat("idle"), 1u);
}

TEST_F(HubCoreTest, aCallerThatDiesBeforeItsEarlyReplyIsReadTakesTheReplyWithIt) {
    mServer.read(Packed().put(BC_ENTER_LOOPER));
    mClient.write(Packed().call(BC_TRANSACTION, 0, 1));
    mServer.write(Packed().reply("unread"));
    EXPECT_EQ(stat("buffers"), 2u);
    mHub.closeThread(mClient.thread);
    EXPECT_EQ(stat("buffers"), 1u) << "the call's, which the server holds";
}

TEST_F(HubCoreTest, aMessageWhoseDescriptorsCannotGoOutFailsAloneAndItsReceiverLivesOn) {
    const struct {
        const char* name;
        uint32_t flags;
        bool inReply;
    } rows[] = {{"a call", TF_ACCEPT_FDS, false},
                {"a one-way call", TF_ONE_WAY, false},
                {"a reply", TF_ACCEPT_FDS, true}};
    const uint32_t handle = give(&mClient);
    mClient.write(Packed().put(BC_ENTER_LOOPER));
    mHub.cancelRead(mServer.thread);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        mClient.refusesDescriptors = true;
        mClient.waitForWork();
        if (row.inReply) {
            mServer.read(Packed().call(BC_TRANSACTION, handle, 1, {}, row.flags));
            mClient.write(Packed().put(BC_FREE_BUFFER, mClient.got.back().buffer));
            mServer.refusesDescriptors = true;
            mClient.got.clear();
        }
        Peer& sender = row.inReply ? mClient : mServer;
        std::vector<uint8_t> bytes = row.inReply ? Packed().reply(Payload().descriptor(0)).bytes
                                                 : Packed().call(BC_TRANSACTION, handle, 1,
                                                                 Payload().descriptor(0), row.flags)
                                                           .bytes;
        EXPECT_TRUE(sender.feedDescriptor(bytes));
        EXPECT_EQ(stat("descriptors"), 0u);
        EXPECT_EQ(stat("buffers"), 0u);
        mServer.refusesDescriptors = mClient.refusesDescriptors = false;
        const uint32_t wanted = row.flags & TF_ONE_WAY ? BR_TRANSACTION_COMPLETE : BR_FAILED_REPLY;
        EXPECT_EQ(mServer.commands().back(), wanted);
        // The next call arrives.
        mClient.waitForWork();
        mClient.got.clear();
        mServer.read(Packed().call(BC_TRANSACTION, handle, 2));
        ASSERT_EQ(mClient.got.back().command, uint32_t{BR_TRANSACTION});
        mClient.write(Packed().put(BC_FREE_BUFFER, mClient.got.back().buffer).reply());
        mServer.write(Packed().put(BC_FREE_BUFFER, mServer.got.back().buffer));
        mServer.got.clear();
    }
}

TEST_F(HubCoreTest, noticesThatDoNotFitOneRecordComeInTheNext) {
    constexpr uint64_t kNodes = 1300;
    for (uint64_t message = 0; message < 3; message++) {
        Payload payload;
        for (uint64_t i = 0; i < kNodes; i++)
            payload.node(kPtr + 8 * (message * kNodes + i));
        mClient.write(Packed().oneway(0, 1, payload));
    }
    std::map<uint32_t, uint64_t> seen;
    while (!mClient.thread->waiting) {
        mClient.read();
        for (const uint32_t command : mClient.commands())
            seen[command]++;
    }
    EXPECT_EQ(seen[BR_ACQUIRE], 3 * kNodes);
    EXPECT_EQ(seen[BR_TRANSACTION_COMPLETE], 3u);
}

TEST_F(HubCoreTest, twoReadsWithoutAnAnswerAndUnknownFlagsAreAgainstTheProtocol) {
    EXPECT_FALSE(mClient.feed({}, 0x80));
    mClient.read();
    EXPECT_FALSE(mClient.feed({}, frame::kRead));
}

TEST_F(HubCoreTest, aFrameCutAnywhereInsideACommandIsAgainstTheProtocol) {
    const Packed whole = Packed().put(BC_ACQUIRE, uint32_t{0})
                                 .call(BC_TRANSACTION, 0, 1, Payload("12345678").node(kPtr))
                                 .put(BC_FREE_BUFFER, uint64_t{5});
    const std::set<size_t> ends = {0, 8, whole.bytes.size() - 12, whole.bytes.size()};
    for (size_t size = 0; size <= whole.bytes.size(); size += 4) {
        Peer peer(&mHub, 9);
        EXPECT_EQ(peer.feed({whole.bytes.data(), size}, 0), ends.contains(size)) << size;
        mHub.closeProcess(peer.process);
    }
    EXPECT_EQ(stat("handles"), 4u) << "of the four whole calls that wait for the server";
    serveAll();
    EXPECT_EQ(stat("handles"), 0u);
    EXPECT_EQ(stat("buffers"), 0u);
}

TEST_F(HubCoreTest, wildSizesDoNotWrap) {
    for (const uint64_t size : {~uint64_t{0}, ~uint64_t{0} - 7, uint64_t{1} << 63,
                                uint64_t{1} << 32, uint64_t{1} << 20}) {
        for (const int which : {0, 1, 2, 3}) {
            Peer peer(&mHub, 9);
            frame::Transaction head;
            (which % 2 ? head.data.offsets_size : head.data.data_size) = size;
            if (which >= 2) head.placement = frame::Placement::Memory;
            EXPECT_FALSE(peer.feed(Packed().put(BC_TRANSACTION, head).bytes, 0)) << size;
            mHub.closeProcess(peer.process);
        }
    }
    EXPECT_EQ(stat("buffers"), 0u);
}

TEST_F(HubCoreTest, randomFramesHarmNobodyElse) {
    std::mt19937 random(4711);
    // clang-format off
    const uint32_t known[] = {
            BC_TRANSACTION, BC_REPLY, BC_FREE_BUFFER, BC_INCREFS, BC_ACQUIRE, BC_RELEASE,
            BC_DECREFS, BC_INCREFS_DONE, BC_ACQUIRE_DONE, BC_ENTER_LOOPER, BC_EXIT_LOOPER,
            BC_REGISTER_LOOPER, BC_REQUEST_DEATH_NOTIFICATION, BC_CLEAR_DEATH_NOTIFICATION,
            BC_DEAD_BINDER_DONE, frame::kCommandReject, frame::kCommandUntold, BC_TRANSACTION_SG};
    // clang-format on
    mServer.read(Packed().put(BC_ENTER_LOOPER));
    for (int round = 0; round < 3000; round++) {
        Peer peer(&mHub, 9);
        bool sound = true;
        for (int i = 0; i < 8 && sound; i++) {
            Packed packed;
            const uint32_t command = known[random() % std::size(known)];
            if (command == BC_TRANSACTION || command == BC_REPLY) {
                Payload payload("01234567");
                if (random() % 2) payload.node(random() % 4 * 8);
                if (random() % 4 == 0) payload.handle(random() % 3);
                if (random() % 4 == 0) payload.offsets.push_back(random() % 64);
                packed.call(command, random() % 3, 1, payload, random() % 2);
            } else {
                packed.put(command);
                const size_t extra = random() % 4 ? _IOC_SIZE(command) : random() % 24;
                for (size_t at = 0; at < extra; at++) {
                    packed.bytes.push_back(static_cast<uint8_t>(at % 4 ? 0 : random() % 4));
                }
            }
            sound = peer.feed(packed.bytes, peer.thread->waiting ? 0 : random() % 2);
        }
        mHub.closeProcess(peer.process);
        serveAll();
        ASSERT_EQ(stat("buffers"), 0u) << round;
        ASSERT_EQ(stat("handles"), 0u) << round;
        ASSERT_EQ(stat("nodes"), 1u) << round;
        ASSERT_EQ(stat("processes"), 2u) << round;
    }
}

class HubLimitsTest : public HubCoreTest {
protected:
    static Limits small() {
        Limits limits;
        limits.nodes = 3;
        limits.handles = 2;
        limits.deathLinks = 2;
        limits.threadsPerProcess = 2;
        limits.threadBacklog = 8;
        limits.untold = 2;
        return limits;
    }
    HubLimitsTest() : HubCoreTest(small()) {}
};

TEST_F(HubLimitsTest, aFullHandleTableFailsTheSendersCallAndRecovers) {
    (void)give(&mClient, kPtr);
    const uint32_t second = give(&mClient, kPtr + 8);
    mClient.read(Packed().oneway(0, 1, Payload().node(kPtr + 16)));
    EXPECT_EQ(mClient.commands(), Seen{BR_FAILED_REPLY});
    mServer.write(Packed().put(BC_RELEASE, second));
    mClient.read(Packed().put(BC_ENTER_LOOPER));
    EXPECT_EQ(mClient.commands(), (Seen{BR_RELEASE, BR_DECREFS}));
    EXPECT_EQ(give(&mClient, kPtr + 16), second);
}

TEST_F(HubLimitsTest, aProcessWithTooManyNodesFailsItsOwnCallsOnly) {
    Peer other(&mHub, 3);
    mClient.read(Packed().call(BC_TRANSACTION, 0, 1, Payload().node(8).node(16).node(24).node(32)));
    EXPECT_EQ(mClient.commands().back(), uint32_t{BR_FAILED_REPLY});
    other.read(Packed().oneway(0, 1, Payload().node(8)));
    EXPECT_EQ(other.commands().back(), uint32_t{BR_TRANSACTION_COMPLETE});
}

TEST_F(HubLimitsTest, tooManyDeathLinksAreAgainstTheProtocol) {
    const uint32_t handle = give(&mClient);
    for (uint64_t cookie = 0; cookie < 2; cookie++) {
        mServer.write(Packed().put(BC_EXIT_LOOPER)
                              .put(BC_REQUEST_DEATH_NOTIFICATION, handle, cookie)
                              .put(BC_CLEAR_DEATH_NOTIFICATION, handle, cookie));
    }
    EXPECT_FALSE(mServer.feed(
            Packed().put(BC_REQUEST_DEATH_NOTIFICATION, handle, uint64_t{2}).bytes, 0));
    mHub.closeProcess(mServer.process);
    EXPECT_EQ(stat("death_links"), 0u);
}

TEST_F(HubLimitsTest, aThreadThatReadsNothingIsCutOffAtItsBacklog) {
    bool sound = true;
    int calls = 0;
    for (; sound && calls < 100; calls++)
        sound = mClient.feed(Packed().oneway(9, 1).bytes, 0);
    EXPECT_EQ(calls, 9);
}

TEST_F(HubLimitsTest, noticesThatAreGivenBackAreTellableAgainAndBounded) {
    const Packed one = Packed().put(BR_ACQUIRE, kPtr, uint64_t{7});
    mClient.write(one);
    mClient.write(one);
    EXPECT_EQ(stat("queued"), 2u);
    mClient.read(Packed().put(BC_ENTER_LOOPER));
    mClient.read();
    EXPECT_EQ(mClient.commands(), (Seen{BR_ACQUIRE, BR_ACQUIRE}));
    mClient.write(one);
    mClient.write(one);
    EXPECT_FALSE(mClient.feed(one.bytes, 0));
    mHub.closeProcess(mClient.process);
    EXPECT_EQ(stat("queued"), 0u);
}

TEST_F(HubLimitsTest, aProcessHasABoundedNumberOfThreads) {
    EXPECT_NE(mHub.openThread(mClient.process, &mClient), nullptr);
    EXPECT_EQ(mHub.openThread(mClient.process, &mClient), nullptr);
}

}  // namespace
}  // namespace binderhost::hub
