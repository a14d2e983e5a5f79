// SPDX-License-Identifier: Apache-2.0
//
// Bare sockets that do not keep to the protocol: they are cut off and nobody else notices.
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <optional>
#include <thread>

#include "Bare.h"
#include "Child.h"
#include "RawClient.h"
#include "TestHub.h"

namespace binderhost::tests {
namespace {

class MalformedTest : public HubFixture {
protected:
    void expectServed() {
        mClient.write(Commands().call(0, 1, "well?"));
        (void)mServer.serve("well.");
        const Return reply = mClient.expectReply();
        EXPECT_EQ(reply.text(), "well.");
        mClient.write(Commands().freeBuffer(reply));
    }
    void TearDown() override {
        expectServed();
        awaitStat("processes", 2);
    }

    RawClient mServer{path()};
    RawClient mClient{path()};
    void SetUp() override { mServer.publish(); }
};

TEST_F(MalformedTest, aGreetingThatIsCutOrOfAnotherVersionOrKindIsRefused) {
    frame::Hello sound;
    sound.header.kind = frame::Kind::HelloProcess;
    std::vector<std::vector<uint8_t>> greetings;
    for (size_t size = 4; size < sizeof(sound); size += 4) {
        greetings.push_back(bytesOf(sound));
        greetings.back().resize(size);
    }
    void (*const kChanges[])(frame::Hello*) = {
            [](frame::Hello* hello) { hello->version++; },
            [](frame::Hello* hello) { hello->header.magic ^= 1; },
            [](frame::Hello* hello) { hello->header.kind = frame::Kind::Commands; },
            [](frame::Hello* hello) {
                hello->header.kind = frame::Kind::HelloThread;
            }};  // no token
    for (const auto change : kChanges) {
        frame::Hello hello = sound;
        change(&hello);
        greetings.push_back(bytesOf(hello));
    }
    for (size_t i = 0; i < greetings.size(); i++) {
        const Bare bare(path());
        ASSERT_EQ(bare.send(greetings[i]), 0);
        EXPECT_TRUE(bare.cutOff()) << i;
    }
}

TEST_F(MalformedTest, aFrameThatIsNoneEndsItsProcessOnly) {
    const auto sound = soundFrame();
    frame::Transaction head;
    auto large = bytesOf(frame::Header{});
    appendBytes(&large, uint32_t{BC_TRANSACTION});
    head.data.data_size = frame::kMaxBytes - large.size() - sizeof(head);
    head.data.flags = TF_ONE_WAY;
    appendBytes(&large, head);
    large.resize(frame::kMaxBytes);
    auto oversized = bytesOf(frame::Header{});
    oversized.resize(frame::kMaxBytes + 8);
    const int surplus[] = {STDERR_FILENO};
    const struct {
        const char* name;
        std::vector<uint8_t> bytes;
        std::span<const int> descriptors;
    } rows[] = {{"half a header", {sound.begin(), sound.begin() + 8}, {}},
                {"half a call", {sound.begin(), sound.end() - 8}, {}},
                {"more than a frame", oversized, {}},
                {"data too large to travel inline", large, {}},
                {"a descriptor that nobody announced", sound, surplus}};
    for (const auto& row : rows) {
        const BareProcess bare(path());
        ASSERT_EQ(bare.thread.send(row.bytes, row.descriptors), 0);
        EXPECT_TRUE(bare.thread.cutOff()) << row.name;
        EXPECT_TRUE(bare.process.cutOff()) << row.name;
    }
}

TEST_F(MalformedTest, aThreadThatFloodsOnWhileItsProcessLeavesHoldsNobodyUp) {
    BareProcess bare(path());
    // Each frame takes the hub longer than the next one needs to come.
    const auto frame = longFrame(32 * 1024);
    std::atomic<int> sent{0};
    std::vector<std::thread> flood;
    for (int i = 0; i < 4; i++) {
        flood.emplace_back([&] {
            while (bare.thread.send(frame) == 0)
                sent++;
        });
    }
    bare.process.hangUp();
    const int before = sent;
    for (std::thread& each : flood)
        each.join();
    EXPECT_LE(sent - before, 64) << "more than a socket holds";
}

TEST_F(MalformedTest, aDescriptorWhoseClosingTakesLongHoldsNobodyUp) {
    // A socket with data that nobody takes: its last closing waits for them.
    const unique_fd listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* place = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(bind(listener.get(), place, size), 0);
    ASSERT_EQ(listen(listener.get(), 1), 0);
    ASSERT_EQ(getsockname(listener.get(), place, &size), 0);
    unique_fd slow(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(connect(slow.get(), place, size), 0);
    const unique_fd peer(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    const std::string data(1 << 16, 'x');
    while (send(slow.get(), data.data(), data.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0)
        continue;
    const linger patience{1, 3600};
    ASSERT_EQ(setsockopt(slow.get(), SOL_SOCKET, SO_LINGER, &patience, sizeof(patience)), 0);

    std::optional<RawClient> receiver(path());
    receiver->write(Commands().call(0, 1, Payload().node(8)));
    const Return call = mServer.expect(BR_TRANSACTION);
    mServer.post(call.object(0).handle, 1, Payload().descriptor(slow.get()));
    slow.reset();
    mServer.write(Commands().freeBuffer(call).reply());
    (void)mServer.expect(BR_TRANSACTION_COMPLETE);
    receiver.reset();
    expectServed();
}

TEST_F(MalformedTest, dataInMemoryThatIsNotSealedOrNotAsLargeAsSaidFailTheCall) {
    for (int wrong = 0; wrong < 4; wrong++) {
        const BareProcess bare(path());
        unique_fd memory(memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
        ASSERT_EQ(ftruncate(memory.get(), 50'000), 0);
        int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;
        if (wrong == 1) seals = F_SEAL_SHRINK | F_SEAL_GROW;
        ASSERT_EQ(fcntl(memory.get(), F_ADD_SEALS, seals), 0);
        if (wrong == 3) memory.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
        frame::Transaction head;
        head.data.data_size = wrong == 2 ? 50'001 : 50'000;
        head.data.flags = TF_ONE_WAY;
        head.placement = frame::Placement::Memory;
        head.descriptors = 1;
        auto bytes = bytesOf(frame::Header{.flags = frame::kRead, .descriptors = 1});
        appendBytes(&bytes, uint32_t{BC_TRANSACTION});
        appendBytes(&bytes, head);
        const int descriptors[] = {memory.get()};
        ASSERT_EQ(bare.thread.send(bytes, descriptors), 0);
        EXPECT_EQ(bare.thread.firstReturn(), wrong ? BR_FAILED_REPLY : BR_TRANSACTION_COMPLETE)
                << wrong;
        if (wrong) continue;
        EXPECT_EQ(mServer.take().data().data_size, 50'000u);
    }
}

TEST_F(MalformedTest, aProcessEndsAlsoWhenAChildKeepsItsConnectionsOpen) {
    int hold[2];
    ASSERT_EQ(pipe2(hold, O_CLOEXEC), 0);
    const unique_fd held(hold[0]);
    unique_fd holding(hold[1]);
    Child parent([&](Child::Door& door) {
        const BareProcess bare(path());
        if (fork() == 0) {
            holding.reset();
            char byte = 0;
            _exit(read(held.get(), &byte, 1) == 0 ? 0 : 1);
        }
        door.tell('f');
        door.await('-');
    });
    parent.await('f');
    EXPECT_EQ(stats()["processes"], 3u);
    parent.killAndWait();
    awaitStat("processes", 2);
}

TEST_F(MalformedTest, strangersThatSayNothingGiveWayToNewOnes) {
    std::vector<std::unique_ptr<Bare>> silent;
    for (int i = 0; i < 300; i++)
        silent.push_back(std::make_unique<Bare>(path()));
    EXPECT_TRUE(silent.front()->cutOff());
    RawClient another(path());
    awaitStat("processes", 3);
}

TEST_F(MalformedTest, aHubWithNoDescriptorLeftRefusesAndServesOn) {
    expectServed();
    const rlimit tight{40, 40};
    ASSERT_EQ(prlimit(hubPid(), RLIMIT_NOFILE, &tight, nullptr), 0);
    {
        std::vector<std::unique_ptr<Bare>> many;
        for (int i = 0; i < 60; i++)
            many.push_back(std::make_unique<Bare>(path()));
        EXPECT_TRUE(many.back()->cutOff());
        // A message whose descriptors the hub cannot take fails, and only it.
        mClient.write(Commands().oneway(0, 1, Payload().descriptor(STDERR_FILENO)));
        (void)mClient.expect(BR_FAILED_REPLY);
        expectServed();
    }
    awaitStat("connections", 7);  // two processes, their ends, their threads, the question
}

}  // namespace
}  // namespace binderhost::tests
