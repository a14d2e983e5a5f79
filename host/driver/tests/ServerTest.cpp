// SPDX-License-Identifier: Apache-2.0
//
// The hub's sockets with bounds of the test's own, and what it says about what it does.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <list>
#include <optional>

#include "Bare.h"
#include "RawClient.h"
#include "TestHub.h"
#include "hub/Listening.h"
#include "hub/Server.h"

namespace binderhost::tests {
namespace {

class ServerTest : public ::testing::Test {
protected:
    ServerTest() {
        char pattern[] = "/tmp/binderhub-test-XXXXXX";
        mFolder = mkdtemp(pattern) ? pattern : "";
        int ends[2];
        if (pipe2(ends, O_CLOEXEC)) std::abort();
        mLog.reset(ends[0]);
        mLogEnd.reset(ends[1]);
    }
    ~ServerTest() override { std::filesystem::remove_all(mFolder); }

    [[nodiscard]] std::string path() const { return mFolder + "/hub"; }

    /** A hub as a process, whose stderr is the log. */
    std::unique_ptr<Child> serve(const hub::Limits& limits, void (*prepare)() = nullptr) {
        auto server = std::make_unique<Child>([&](Child::Door& door) {
            dup2(mLogEnd.get(), STDERR_FILENO);
            if (prepare) prepare();
            std::string error;
            unique_fd listener = hub::listenAt(path(), hub::OpenTo::All, &error);
            require(listener.ok(), error.c_str());
            hub::Server hub(std::move(listener), unique_fd(eventfd(0, EFD_CLOEXEC)), limits);
            door.tell('l');
            (void)hub.run();
        });
        server->await('l');
        return server;
    }

    [[nodiscard]] uint64_t count(const std::string& name) const { return statsAt(path()).at(name); }

    static void stop(const Child& server) {
        server.signal(SIGSTOP);
        siginfo_t what{};
        ASSERT_EQ(waitid(P_PID, static_cast<id_t>(server.pid()), &what, WSTOPPED), 0);
    }

    /** What was logged, once nobody can add to it. */
    [[nodiscard]] std::string log() {
        mLogEnd.reset();
        std::string all;
        char part[512];
        for (ssize_t got = 0; (got = read(mLog.get(), part, sizeof(part))) > 0;)
            all.append(part, static_cast<size_t>(got));
        return all;
    }
    [[nodiscard]] static int count(const std::string& text, const std::string& part) {
        int times = 0;
        for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at++)
            times++;
        return times;
    }

    std::string mFolder;
    unique_fd mLog;
    unique_fd mLogEnd;
};

TEST_F(ServerTest, aFullHubRefusesAndSaysSoOnceUntilManyHaveGone) {
    hub::Limits limits;
    limits.connections = 12;  // the listener and the signal are two of them
    const auto server = serve(limits);
    for (int times = 0; times < 2; times++) {
        std::list<Bare> held;
        int refused = 0;
        for (int i = 0; i < 30; i++) {
            Bare each(path());
            if (each.tryToBecomeProcess()) {
                held.push_back(std::move(each));
            } else {
                refused++;
            }
        }
        EXPECT_EQ(held.size(), 5u) << "each has a connection and a watch of its end";
        EXPECT_EQ(refused, 25);
        held.clear();
        awaitStatAt(path(), "connections", 1);
    }
    server->killAndWait();
    const std::string said = log();
    EXPECT_EQ(count(said, "as many connections as there may be: connections are refused"), 2)
            << said;
}

TEST_F(ServerTest, aHubWhoseLogNobodyReadsServesOn) {
    ASSERT_EQ(fcntl(mLogEnd.get(), F_SETFL, O_NONBLOCK), 0);
    const std::string full(4096, '-');
    while (write(mLogEnd.get(), full.data(), full.size()) > 0)
        continue;
    ASSERT_EQ(fcntl(mLogEnd.get(), F_SETFL, 0), 0);
    const auto server = serve({});
    for (int i = 0; i < 5; i++) {
        const Bare bare(path());
        ASSERT_EQ(bare.send(soundFrame()), 0);
        ASSERT_TRUE(bare.cutOff()) << "the hub waits for its log";
    }
    server->killAndWait();
    EXPECT_EQ(count(log(), "binderhub"), 0);
}

TEST_F(ServerTest, whatClientsMakeAHubSayIsBounded) {
    // A file takes it all.
    const std::string file = mFolder + "/log";
    mLogEnd.reset(open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    mLog.reset(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    const auto server = serve({});
    for (int i = 0; i < 3000; i++) {
        const Bare bare(path());
        ASSERT_EQ(bare.send(soundFrame()), 0);
    }
    const Bare last(path());
    ASSERT_EQ(last.send(soundFrame()), 0);
    ASSERT_TRUE(last.cutOff());
    server->killAndWait();
    const std::string said = log();
    EXPECT_GE(count(said, "cut off"), 1) << said;
    EXPECT_LT(count(said, "cut off"), 3000);
}

/** As an ordinary user's, with few descriptors: so many may be on their way as well. */
void haveFewDescriptors() {
    const rlimit few{100, 100};
    require(setrlimit(RLIMIT_NOFILE, &few) == 0, "setrlimit");
    if (geteuid() != 0) return;
    constexpr uid_t kNobody = 65534;
    require(setresgid(kNobody, kNobody, kNobody) == 0, "setresgid");
    require(setresuid(kNobody, kNobody, kNobody) == 0, "setresuid");
}

/** A process that has handed out a node and waits for work, which it does not read. */
struct Deaf {
    Deaf(const std::string& path, RawClient* registry) : bare(path) {
        const Payload node = Payload().node(8);
        frame::Transaction head;
        head.data.flags = TF_ONE_WAY;
        head.data.data_size = node.bytes.size();
        head.data.offsets_size = sizeof(binder_size_t);
        auto bytes = bytesOf(frame::Header{.flags = frame::kRead});
        appendBytes(&bytes, uint32_t{BC_ENTER_LOOPER});
        appendBytes(&bytes, uint32_t{BC_TRANSACTION});
        appendBytes(&bytes, head);
        bytes.insert(bytes.end(), node.bytes.begin(), node.bytes.end());
        appendBytes(&bytes, node.offsets[0]);
        require(bare.thread.send(bytes) == 0, "send");
        const Return offer = registry->expect(BR_TRANSACTION);
        handle = offer.object(0).handle;
        registry->write(Commands().count(BC_ACQUIRE, handle).freeBuffer(offer));
        require(bare.thread.firstReturn() == BR_INCREFS, "offer");
        require(bare.thread.send(bytesOf(frame::Header{.flags = frame::kRead})) == 0, "read");
    }
    BareProcess bare;
    uint32_t handle = 0;
};

TEST_F(ServerTest, noReceiverSuffersWhenOthersLeaveTooManyDescriptorsOnTheirWay) {
    ASSERT_EQ(chmod(mFolder.c_str(), 0777), 0);
    const auto server = serve({}, &haveFewDescriptors);
    RawClient registry(path());
    registry.publish();
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const unique_fd in(ends[0]), out(ends[1]);
    Payload payload;
    for (int i = 0; i < 45; i++)
        payload.descriptor(out.get());
    std::list<Deaf> receivers;
    for (int i = 0; i < 5; i++) {
        Deaf& each = receivers.emplace_back(path(), &registry);
        registry.post(each.handle, 1, payload);
    }
    EXPECT_EQ(count("processes"), 6u);
    // Three are on their way; the others were given up.
    EXPECT_EQ(count("buffers"), 3u);
    EXPECT_EQ(count("descriptors"), 0u);
}

TEST_F(ServerTest, aDeathIsToldBeforeWhatIsSaidAfterItByOneWhoWasHeardBefore) {
    constexpr uint32_t kUnknownHandle = 4711;
    const auto server = serve({});
    RawClient registry(path());
    registry.publish();
    std::optional<RawClient> mortal(path());
    const uint32_t handle = mortal->giveNode(&registry);
    registry.write(Commands().death(BC_REQUEST_DEATH_NOTIFICATION, handle, kCookie));

    const BareProcess bare(path());
    const Bare& speaker = bare.thread;
    std::list<Bare> crowd;
    for (int i = 0; i < 8; i++)
        crowd.emplace_back(path(), bare.process);
    // The speaker is heard first in a round that the crowd makes long: its connection stands
    // before that of the one that dies when the hub looks again.
    stop(*server);
    ASSERT_EQ(speaker.send(soundFrame(kUnknownHandle, frame::kRead)), 0);
    for (const Bare& each : crowd)
        ASSERT_EQ(each.send(longFrame(100 * 1024)), 0);
    server->signal(SIGCONT);
    EXPECT_EQ(speaker.firstReturn(), BR_FAILED_REPLY);
    stop(*server);
    mortal.reset();
    ASSERT_EQ(speaker.send(soundFrame()), 0);
    server->signal(SIGCONT);
    EXPECT_EQ(registry.nextEvent().command, uint32_t{BR_DEAD_BINDER});
    EXPECT_EQ(registry.nextEvent().command, uint32_t{BR_TRANSACTION});
}

}  // namespace
}  // namespace binderhost::tests
