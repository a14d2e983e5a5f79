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
#include <random>
#include <thread>

#include "Bare.h"
#include "Child.h"
#include "HubFixture.h"
#include "RawClient.h"

namespace binderhost::tests {
namespace {

class MalformedTest : public HubFixture {
protected:
    void expectServed() {
        mClient.write(Commands().call(0, 1, "well?"));
        const Return call = mServer.expect(BR_TRANSACTION);
        mServer.write(Commands().freeBuffer(call).reply("well."));
        (void)mServer.expect(BR_TRANSACTION_COMPLETE);
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

TEST_F(MalformedTest, aGreetingCutAnywhereIsRefused) {
    frame::Hello hello;
    hello.header.kind = frame::Kind::HelloProcess;
    const auto bytes = bytesOf(hello);
    for (size_t size = 4; size < bytes.size(); size += 4) {
        const Bare bare(path());
        ASSERT_EQ(bare.send({bytes.data(), size}), 0);
        EXPECT_TRUE(bare.cutOff()) << size;
    }
}

TEST_F(MalformedTest, aGreetingOfAnotherVersionOrKindIsRefused) {
    for (int wrong = 0; wrong < 4; wrong++) {
        frame::Hello hello;
        hello.header.kind = frame::Kind::HelloProcess;
        if (wrong == 0) hello.version++;
        if (wrong == 1) hello.header.magic ^= 1;
        if (wrong == 2) hello.header.kind = frame::Kind::Commands;
        if (wrong == 3) hello.header.kind = frame::Kind::HelloThread;  // with no token
        const Bare bare(path());
        ASSERT_EQ(bare.send(bytesOf(hello)), 0);
        EXPECT_TRUE(bare.cutOff()) << wrong;
    }
}

TEST_F(MalformedTest, aCommandFrameCutAnywhereEndsItsProcessOnly) {
    const auto bytes = soundFrame();
    for (size_t size = 4; size < bytes.size(); size += 4) {
        if (size == sizeof(frame::Header)) continue;  // an empty frame is sound
        Bare process(path());
        process.becomeProcess();
        const Bare thread(path(), process);
        ASSERT_EQ(thread.send({bytes.data(), size}), 0);
        EXPECT_TRUE(thread.cutOff()) << size;
        EXPECT_TRUE(process.cutOff()) << size;
    }
}

TEST_F(MalformedTest, randomBytesEndTheirProcessOnly) {
    std::mt19937 random(7);
    for (int round = 0; round < 200; round++) {
        Bare process(path());
        process.becomeProcess();
        const Bare thread(path(), process);
        std::vector<uint8_t> bytes(16 + random() % 200);
        for (uint8_t& each : bytes)
            each = static_cast<uint8_t>(random());
        if (round % 2) {
            const auto head = bytesOf(frame::Header{});
            std::copy(head.begin(), head.end(), bytes.begin());
        }
        ASSERT_EQ(thread.send(bytes), 0);
    }
}

TEST_F(MalformedTest, anOversizedRecordIsCutOff) {
    Bare process(path());
    process.becomeProcess();
    auto bytes = bytesOf(frame::Header{});
    bytes.resize(frame::kMaxBytes + 8);
    ASSERT_EQ(process.send(bytes), 0);
    EXPECT_TRUE(process.cutOff());
}

TEST_F(MalformedTest, dataTooLargeToTravelInlineEndTheSenderAndNotTheReceiver) {
    Bare process(path());
    process.becomeProcess();
    const Bare thread(path(), process);
    frame::Transaction head;
    auto bytes = bytesOf(frame::Header{});
    appendBytes(&bytes, uint32_t{BC_TRANSACTION});
    head.data.data_size = frame::kMaxBytes - bytes.size() - sizeof(head);
    head.data.flags = TF_ONE_WAY;
    appendBytes(&bytes, head);
    bytes.resize(frame::kMaxBytes);
    ASSERT_EQ(thread.send(bytes), 0);
    EXPECT_TRUE(thread.cutOff());
}

TEST_F(MalformedTest, aThreadThatFloodsOnWhileItsProcessLeavesHoldsNobodyUp) {
    Bare process(path());
    process.becomeProcess();
    const Bare thread(path(), process);
    // Each frame takes the hub longer than the next one needs to come.
    auto frame = bytesOf(frame::Header{});
    while (frame.size() < 32 * 1024) {
        for (const uint32_t command : {BC_INCREFS, BC_DECREFS}) {
            appendBytes(&frame, command);
            appendBytes(&frame, uint32_t{0});
        }
    }
    std::atomic<int> sent{0};
    std::vector<std::thread> flood;
    for (int i = 0; i < 4; i++) {
        flood.emplace_back([&] {
            while (thread.send(frame) == 0)
                sent++;
        });
    }
    process.hangUp();
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
    mServer.write(Commands().oneway(call.object(0).handle, 1, Payload().descriptor(slow.get())));
    (void)mServer.expect(BR_TRANSACTION_COMPLETE);
    slow.reset();
    mServer.write(Commands().freeBuffer(call).reply());
    (void)mServer.expect(BR_TRANSACTION_COMPLETE);
    receiver.reset();
    expectServed();
}

TEST_F(MalformedTest, descriptorsThatNobodyAnnouncedEndTheProcess) {
    Bare process(path());
    process.becomeProcess();
    const Bare thread(path(), process);
    const int surplus[] = {STDERR_FILENO};
    ASSERT_EQ(thread.send(soundFrame(), surplus), 0);
    EXPECT_TRUE(thread.cutOff());
}

TEST_F(MalformedTest, dataInMemoryThatIsNotSealedOrNotAsLargeAsSaidFailTheCall) {
    for (int wrong = 0; wrong < 4; wrong++) {
        Bare process(path());
        process.becomeProcess();
        const Bare thread(path(), process);
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
        ASSERT_EQ(thread.send(bytes, descriptors), 0);
        EXPECT_EQ(thread.firstReturn(), wrong ? BR_FAILED_REPLY : BR_TRANSACTION_COMPLETE) << wrong;
        if (wrong) continue;
        const Return call = mServer.expect(BR_TRANSACTION);
        EXPECT_EQ(call.data().data_size, 50'000u);
        mServer.write(Commands().freeBuffer(call));
    }
}

TEST_F(MalformedTest, aChildOnItsParentsConnectionEndsIt) {
    Bare process(path());
    process.becomeProcess();
    const Bare thread(path(), process);
    Child child([&](Child::Door&) { require(thread.send(soundFrame()) == 0, "send"); });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_TRUE(thread.cutOff());
}

TEST_F(MalformedTest, aProcessEndsAlsoWhenAChildKeepsItsConnectionsOpen) {
    int hold[2];
    ASSERT_EQ(pipe2(hold, O_CLOEXEC), 0);
    const unique_fd held(hold[0]);
    unique_fd holding(hold[1]);
    Child parent([&](Child::Door& door) {
        Bare process(path());
        process.becomeProcess();
        const Bare thread(path(), process);
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

TEST_F(MalformedTest, aThreadCannotJoinAnotherProcessEvenWithItsToken) {
    Bare process(path());
    process.becomeProcess();
    Child thief([&](Child::Door&) {
        const Bare own(path());
        frame::Hello hello;
        hello.header.kind = frame::Kind::HelloThread;
        hello.token = process.token();
        require(own.send(bytesOf(hello)) == 0 && own.cutOff(), "joined");
    });
    EXPECT_EQ(thief.wait(), 0);
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
