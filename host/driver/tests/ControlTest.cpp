// SPDX-License-Identifier: Apache-2.0
//
// The control connection itself: what may come over it, from whom, and questions about quiet
// between real processes.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <string>
#include <vector>

#include "Bare.h"
#include "Child.h"
#include "ControlFixture.h"
#include "PeerClient.h"
#include "RawClient.h"
#include "embedded/ControlFrame.h"
#include "hub/Assignments.h"

namespace binderhost::tests {
namespace {

using Status = HubControl::Status;

/** Both ends of a pair, one of which a hub gets. */
struct BareEnds {
    BareEnds() {
        int ends[2];
        require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
        mine.reset(ends[0]);
        hubs.reset(ends[1]);
        const int on = 1;
        require(setsockopt(hubs.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) == 0, "creds");
    }
    unique_fd mine;
    unique_fd hubs;
};

class BareControlTest : public ::testing::Test, protected BareEnds, protected TestHub {
protected:
    BareControlTest() : TestHub(BareEnds::hubs.get()) { hubs.reset(); }
    void SetUp() override { EXPECT_EQ(receive().kind, control::Kind::Ready); }

    void send(std::span<const uint8_t> bytes, std::span<const int> descriptors = {}) const {
        const iovec part{const_cast<uint8_t*>(bytes.data()), bytes.size()};
        require(sendRecord(mine.get(), {&part, 1}, descriptors, nullptr, 0) == 0, "send");
    }
    [[nodiscard]] control::Answer receive() const {
        control::Answer answer;
        std::array<uint8_t, sizeof(answer) + control::kMostText> room{};
        Received received;
        pollfd wait{mine.get(), POLLIN, 0};
        require(poll(&wait, 1, 20'000) == 1, "no answer");
        require(receiveRecord(mine.get(), room, MSG_DONTWAIT, &received) == 0, "receive");
        ByteReader reader({room.data(), received.size});
        require(reader.take(&answer), "cut");
        return answer;
    }
    [[nodiscard]] Status ask(const control::Request& request) const {
        send(bytesOf(request));
        const control::Answer answer = receive();
        EXPECT_EQ(answer.id, request.id);
        return static_cast<Status>(answer.status);
    }
};

TEST_F(BareControlTest, whatIsNoRequestIsAnsweredAndHarmsNothing) {
    control::Request unknown;
    unknown.kind = static_cast<control::Kind>(77);
    control::Request strange;
    strange.magic = 1;
    control::Request tooMany;
    tooMany.kind = control::Kind::AskQuiet;
    tooMany.count = 0xffffffff;
    std::vector<uint8_t> tail = bytesOf(control::Request{});
    tail.push_back(0);
    const struct {
        const char* name;
        std::vector<uint8_t> bytes;
    } kCases[] = {{"one byte", {1}},
                  {"a cut request", std::vector<uint8_t>(sizeof(control::Request) - 1, 0)},
                  {"another magic", bytesOf(strange)},
                  {"an unknown kind", bytesOf(unknown)},
                  {"more than is there", bytesOf(tooMany)},
                  {"more than it says", tail},
                  {"more than a frame", std::vector<uint8_t>(frame::kMaxBytes + 1, 0)}};
    for (const auto& each : kCases) {
        SCOPED_TRACE(each.name);
        send(each.bytes);
        EXPECT_EQ(static_cast<Status>(receive().status), Status::Malformed);
    }
    const int standard = STDERR_FILENO;
    send(bytesOf(unknown), {&standard, 1});
    EXPECT_EQ(static_cast<Status>(receive().status), Status::Malformed);
    EXPECT_EQ(stats().at("connections"), 1u);
}

TEST(AssignmentsTest, aHubWithoutDescriptorsSaysSoAndNotThatTheProcessIsGone) {
    const auto assignments = hub::Assignments::make(getpid(), geteuid());
    ASSERT_NE(assignments, nullptr);
    Child child([](Child::Door& door) { door.await('e'); });
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit few{std::min<rlim_t>(256, before.rlim_max), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    std::vector<unique_fd> taken;
    for (int fd = 0; (fd = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)) >= 0;)
        taken.emplace_back(fd);
    // A process's own, its folder's and the one to read of it with.
    for (int free = 0; free <= 3; free++) {
        const Status due = free < 3 ? Status::TooMany : Status::Done;
        EXPECT_EQ(assignments->assign(child.pid(), 1000, /*connected=*/false), due) << free;
        taken.pop_back();
    }
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(BareControlTest, onlyTheProcessThatMadeItIsHeard) {
    // Past the guard that closes it in a child.
    Child thief([fd = mine.get()](Child::Door& door) {
        door.await('g');
        control::Request request;
        request.pid = getpid();
        request.uid = 1000;
        const std::vector<uint8_t> bytes = bytesOf(request);
        require(::send(fd, bytes.data(), bytes.size(), 0) > 0, "send");
        door.tell('s');
        door.await('e');
    });
    thief.tell('g');
    thief.await('s');
    // The next answer is to this: the other request got none, and did nothing.
    control::Request own;
    own.id = 5;
    own.pid = thief.pid();
    own.uid = 10050;
    EXPECT_EQ(ask(own), Status::Done);
}

TEST_F(BareControlTest, aLauncherThatReadsNothingIsCutOffAndNobodyElse) {
    control::Request request;
    request.kind = static_cast<control::Kind>(77);
    const std::vector<uint8_t> bytes = bytesOf(request);
    int status = 0;
    for (int sent = 0; sent < 100'000 && status == 0; sent++) {
        const iovec part{const_cast<uint8_t*>(bytes.data()), bytes.size()};
        status = sendRecord(mine.get(), {&part, 1}, {}, nullptr, 0);
    }
    EXPECT_TRUE(status == -EPIPE || status == -ECONNRESET) << status;
    RawClient client(path());
    EXPECT_EQ(client.becomeContextManager(), 0);
}

class QuietHubTest : public ControlFixture {
protected:
    void SetUp() override {
        ControlFixture::SetUp();
        mRegistry.publish();
        mRegistry.beginRead();
    }
    [[nodiscard]] Status quiet(std::vector<pid_t> leftOut = {}) {
        mReason.clear();
        return hub().askQuiet(leftOut, &mReason);
    }
    PeerClient mRegistry{path()};
    PeerClient mClient{path()};
    std::string mReason;
};

TEST_F(QuietHubTest, theAnswerCountsWhatWasSentBeforeTheQuestion) {
    ASSERT_EQ(hub().awaitQuiet({}, kPatience), Status::Done);
    for (int round = 0; round < 50; round++) {
        mClient.write(Commands().oneway(0, 1));
        ASSERT_EQ(quiet(), Status::InFlight) << round;
        EXPECT_NE(mReason, "");
        ASSERT_EQ(quiet({mRegistry.pid()}), Status::InFlight) << "the sender has not read yet";
        (void)mClient.expect(BR_TRANSACTION_COMPLETE);
        ASSERT_EQ(quiet({mRegistry.pid()}), Status::Done);
        (void)mRegistry.take();
        mRegistry.beginRead();
        ASSERT_EQ(hub().awaitQuiet({}, kPatience), Status::Done);
    }
}

TEST_F(QuietHubTest, lettersAreLookedAtFirst) {
    const uint32_t handle = mClient.takeNode(&mRegistry);
    for (uint32_t code = 0; code < 50; code++) {
        mClient.post(handle, code);
        ASSERT_EQ(quiet(), Status::InFlight);
        ASSERT_EQ(mRegistry.take().data().code, code);
        mRegistry.beginRead();
        ASSERT_EQ(hub().awaitQuiet({}, kPatience), Status::Done);
    }
    EXPECT_GT(stats().at("letters_taken"), 40u);
}

TEST_F(QuietHubTest, aWaitEndsWhenTheLastThingDoesOrItsTimeOrSomebodyWantsItTo) {
    mClient.write(Commands().call(0, 1));
    std::string reason;
    EXPECT_EQ(hub().awaitQuiet({}, std::chrono::milliseconds(1), &reason), Status::TimedOut);
    EXPECT_NE(reason, "");
    int stop[2];
    ASSERT_EQ(pipe2(stop, O_CLOEXEC), 0);
    ASSERT_EQ(write(stop[1], "", 1), 1);
    EXPECT_EQ(hub().awaitQuiet({}, kPatience, nullptr, stop[0]), Status::Stopped);
    close(stop[0]);
    close(stop[1]);
    EXPECT_EQ(quiet({mRegistry.pid()}), Status::Done);
    // One that hangs is left out, whatever it has been handed.
    kill(mRegistry.pid(), SIGSTOP);
    EXPECT_EQ(quiet({mRegistry.pid()}), Status::Done);
    kill(mRegistry.pid(), SIGCONT);
    const Return call = mRegistry.expect(BR_TRANSACTION);
    mRegistry.write(Commands().freeBuffer(call).reply());
    mClient.beginRead();
    (void)mRegistry.expect(BR_TRANSACTION_COMPLETE);
    mRegistry.beginRead();
    EXPECT_EQ(hub().awaitQuiet({}, kPatience), Status::Done);
}

TEST_F(QuietHubTest, aDeathBeforeTheQuestionIsKnown) {
    mClient.write(Commands().call(0, 1));
    EXPECT_EQ(quiet(), Status::InFlight);
    mRegistry.kill();
    mClient.beginRead();
    EXPECT_EQ(hub().awaitQuiet({}, kPatience), Status::Done);
}

TEST_F(QuietHubTest, whoWatchesWhomIsKnown) {
    const auto watches = [&](PeerClient& watcher, PeerClient& watched) {
        return hub().askWatch(watcher.pid(), watched.pid());
    };
    EXPECT_EQ(watches(mClient, mRegistry), Status::NotWatching);
    mClient.write(Commands().count(BC_ACQUIRE, 0).death(BC_REQUEST_DEATH_NOTIFICATION, 0, kCookie));
    ASSERT_EQ(hub().awaitQuiet({}, kPatience), Status::Done);
    EXPECT_EQ(watches(mClient, mRegistry), Status::Done);
    EXPECT_EQ(watches(mRegistry, mClient), Status::NotWatching) << "the other way round";
    EXPECT_EQ(hub().askWatch(mClient.pid(), mClient.pid()), Status::NotWatching);
    mRegistry.kill();
    ASSERT_EQ(hub().awaitQuiet(std::array{mClient.pid()}, kPatience), Status::Done);
    EXPECT_EQ(watches(mClient, mRegistry), Status::NotWatching) << "it has ended";
}

TEST_F(QuietHubTest, aHubThatHasGoneSaysSo) {
    stopHub(SIGKILL);
    EXPECT_EQ(quiet(), Status::NoHub);
    EXPECT_EQ(hub().assign(getpid(), kUid), Status::NoHub);
}

}  // namespace
}  // namespace binderhost::tests
