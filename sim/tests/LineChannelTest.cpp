// SPDX-License-Identifier: Apache-2.0
// One JSON object per line: whole, in pieces, too long, or no JSON at all.
#include "process/LineChannel.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

namespace sim {
namespace {

using Read = LineChannel::Read;
using android::base::unique_fd;

LineChannel::Deadline soon() {
    return std::chrono::steady_clock::now() + std::chrono::seconds(10);
}

LineChannel::Deadline now() {
    return std::chrono::steady_clock::now();
}

class LineChannelTest : public testing::Test {
protected:
    LineChannelTest() {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        mChannel = std::make_unique<LineChannel>(unique_fd(ends[0]));
        mOther.reset(ends[1]);
    }

    void otherSays(const std::string& bytes) {
        ASSERT_EQ(write(mOther.get(), bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }

    std::unique_ptr<LineChannel> mChannel;
    unique_fd mOther;
    Json::Value mGot;
};

TEST_F(LineChannelTest, anObjectArrivesAsItWasSent) {
    auto ends = LineChannel::makePair();
    ASSERT_TRUE(ends);
    Json::Value sent(Json::objectValue);
    sent["op"] = "line\nbreak \" and \u00e9";
    sent["list"].append(-1);
    ASSERT_TRUE(ends->first.send(sent));
    ASSERT_EQ(ends->second.receive(&mGot, soon()), Read::Message);
    EXPECT_EQ(mGot, sent);
}

TEST_F(LineChannelTest, severalLinesInOnePieceArriveOneByOne) {
    otherSays("{\"id\":1}\n{\"id\":2}\n{\"id\"");
    for (const int id : {1, 2}) {
        ASSERT_EQ(mChannel->receive(&mGot, soon()), Read::Message);
        EXPECT_EQ(mGot["id"], id);
    }
    EXPECT_EQ(mChannel->receive(&mGot, now()), Read::TimedOut);
    otherSays(":3}\n");
    ASSERT_EQ(mChannel->receive(&mGot, soon()), Read::Message) << "usable after a time-out";
    EXPECT_EQ(mGot["id"], 3);
}

TEST_F(LineChannelTest, whatWasSentBeforeTheEndIsStillRead) {
    otherSays("{\"id\":1}\n");
    mOther.reset();
    EXPECT_EQ(mChannel->receive(&mGot, soon()), Read::Message);
    EXPECT_EQ(mChannel->receive(&mGot, soon()), Read::Closed);
    EXPECT_FALSE(mChannel->send(mGot));
}

TEST_F(LineChannelTest, theStopDescriptorEndsAWait) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const unique_fd reader(ends[0]);
    unique_fd writer(ends[1]);
    EXPECT_EQ(mChannel->receive(&mGot, now(), reader.get()), Read::TimedOut);
    writer.reset();
    EXPECT_EQ(mChannel->receive(&mGot, soon(), reader.get()), Read::Stopped);
}

TEST_F(LineChannelTest, whatIsNoObjectMakesTheChannelUnusable) {
    const std::vector<std::string> lines{
            "", "nonsense", "[1]", "7", "{\"a\":1} trailing", "{\"a\":}", std::string(100, '['),
    };
    for (const std::string& line : lines) {
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        LineChannel channel{unique_fd(ends[0])};
        const unique_fd other(ends[1]);
        const std::string bytes = line + "\n{\"id\":1}\n";
        ASSERT_EQ(write(other.get(), bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
        EXPECT_EQ(channel.receive(&mGot, soon()), Read::Malformed) << line;
        EXPECT_EQ(channel.receive(&mGot, soon()), Read::Malformed) << line;
    }
}

TEST_F(LineChannelTest, aLineWithoutEndIsRefusedAtItsBound) {
    const std::string piece(64 * 1024, 'x');
    Read read = Read::TimedOut;
    for (size_t sent = 0; sent <= LineChannel::kLongestLine + piece.size(); sent += piece.size()) {
        otherSays(piece);
        read = mChannel->receive(&mGot, now());
        if (read != Read::TimedOut) break;
    }
    EXPECT_EQ(read, Read::Malformed);
}

}  // namespace
}  // namespace sim
