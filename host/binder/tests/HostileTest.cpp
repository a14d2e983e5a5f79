// SPDX-License-Identifier: Apache-2.0
//
// The runtime attacked by a process that speaks bare commands, over the embedded driver or a
// kernel's device: statuses, not crashes, and nothing left.
#include <binder/IPCThreadState.h>
#include <gtest/gtest.h>

#include <memory>

#include "HostilePeer.h"
#include "PeerProcess.h"

namespace {

using namespace android;
using namespace peers;

class HostileTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        mVictim = std::make_unique<Peer>(*gHub, kVictim);
        mBinder = gRegistry->await(kVictim);
        ASSERT_NE(mBinder, nullptr) << mVictim->errors();
    }
    void TearDown() override {
        gRegistry->forget(kVictim);
        mBinder.clear();
        mVictim.reset();
        IPCThreadState::self()->flushCommands();
        for (const char* each : {"handles", "death_links", "buffers"})
            EXPECT_TRUE(gHub->awaitStat(each, 0)) << each << " " << gHub->stat(each);
        EXPECT_TRUE(gHub->awaitStat("nodes", 1));
    }

    [[nodiscard]] int32_t number(uint32_t code) const {
        Parcel reply;
        EXPECT_EQ(ask(mBinder, code, &reply), OK);
        return reply.readInt32();
    }

    std::unique_ptr<Peer> mVictim;
    sp<IBinder> mBinder;
};

TEST_P(HostileTest, itsVictimsServeOnAndHoldNothingOfIt) {
    const int32_t pipes = number(kCountPipes);
    {
        Peer hostile(*gHub, GetParam(), "--hostile");
        for (int i = 0; i < 20; i++) {
            Parcel data;
            Parcel reply;
            data.writeInt32(i);
            ASSERT_EQ(mBinder->transact(kEcho, data, &reply), OK) << mVictim->errors();
            EXPECT_EQ(reply.readInt32(), i);
        }
        EXPECT_EQ(hostile.awaitExit(), 0) << hostile.errors();
    }
    EXPECT_TRUE(gHub->awaitStat("processes", 2));
    pid_t pid = 0;
    EXPECT_EQ(mBinder->getDebugPid(&pid), OK) << mVictim->errors();
    EXPECT_EQ(pid, mVictim->pid());
    EXPECT_EQ(number(kCountPipes), pipes);
    Parcel reply;
    EXPECT_EQ(ask(mBinder, kDrop, &reply), OK);
}

INSTANTIATE_TEST_SUITE_P(, HostileTest,
                         testing::Values("random", "dying", "rubbish", "flood", "descriptors"),
                         [](const auto& info) { return info.param; });

}  // namespace
