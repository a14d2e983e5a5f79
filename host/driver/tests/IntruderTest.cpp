// SPDX-License-Identifier: Apache-2.0
//
// Uids that the hub vouches for, and those who were given none: a process of the same user and one
// of another user, that try for one over the hub's socket, as if that were open to all, and over
// connections of those who were.
#include <fcntl.h>
#include <grp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "Bare.h"
#include "Child.h"
#include "ControlFixture.h"
#include "PeerClient.h"
#include "RawClient.h"
#include "embedded/ControlFrame.h"

namespace binderhost::tests {
namespace {

using Status = HubControl::Status;

enum class Intruder { SameUser, OtherUser };

std::string nameOf(const ::testing::TestParamInfo<Intruder>& info) {
    return info.param == Intruder::SameUser ? "ofTheSameUser" : "ofAnotherUser";
}

class IntruderTest : public ControlFixture, public ::testing::WithParamInterface<Intruder> {
protected:
    void SetUp() override {
        if (isOther() && geteuid() != 0) GTEST_SKIP() << "only root has children of other users";
        ControlFixture::SetUp();
        ASSERT_EQ(chmod(path().c_str(), 0666), 0);
    }

    [[nodiscard]] static bool isOther() { return GetParam() == Intruder::OtherUser; }
    /** In a child: from here on it is the intruder. */
    static void becomeIntruder() {
        if (!isOther()) return;
        const uid_t uid = PeerClient::kOrdinaryUid;
        require(setgroups(0, nullptr) == 0 && setgid(uid) == 0 && setuid(uid) == 0, "setuid");
    }
    /** A frame on a connection that is another process's, from this one; whether it is refused. */
    [[nodiscard]] static bool isRefusedOn(const Bare& stolen) {
        const ucred own = ownCredentials();
        return stolen.send(soundFrame(), {}, &own) != 0 || stolen.cutOff();
    }
};

TEST_P(IntruderTest, callsAsOneOfTheOthersWhoeverWasGivenAUid) {
    RawClient registry(path());
    registry.publish();
    Child victim([](Child::Door& door) { door.await('e'); });
    Child intruder([path = path()](Child::Door& door) {
        becomeIntruder();
        door.await('g');
        RawClient me(path);
        me.write(Commands().call(0, 1));
        (void)me.expectReply();
    });
    // Even that which the intruder has of the kernel, when it is a process of the same user.
    ASSERT_EQ(hub().assign(victim.pid(), geteuid()), Status::Done);
    intruder.tell('g');
    const Return call = registry.serve();
    EXPECT_EQ(call.data().sender_pid, intruder.pid());
    EXPECT_EQ(call.data().sender_euid, AssignedUids::kOthersUid);
    EXPECT_EQ(uidInTable(intruder.pid()), std::nullopt);
    EXPECT_EQ(intruder.wait(), 0);
}

TEST_P(IntruderTest, assignsNothingOverTheSocketOfTheHub) {
    Child victim([](Child::Door& door) { door.await('e'); });
    ASSERT_EQ(hub().assign(victim.pid(), kUid), Status::Done);
    for (const control::Kind kind : {control::Kind::Assign, control::Kind::Reassign}) {
        for (const std::string as : {"stranger", "process", "thread"}) {
            SCOPED_TRACE(as);
            Child intruder([&, path = path(), pid = victim.pid()](Child::Door& door) {
                becomeIntruder();
                control::Request request;
                request.kind = kind;
                request.pid = kind == control::Kind::Assign ? getpid() : pid;
                request.uid = 1000;
                Bare first(path);
                if (as != "stranger") first.becomeProcess();
                std::optional<Bare> thread;
                if (as == "thread") thread.emplace(path, first);
                const Bare& connection = thread ? *thread : first;
                require(connection.send(bytesOf(request)) == 0, "send");
                require(connection.cutOff(), "it is not cut off");
                door.tell('d');
                door.await('e');
            });
            intruder.await('d');
            EXPECT_EQ(uidInTable(intruder.pid()), std::nullopt);
            EXPECT_EQ(uidInTable(victim.pid()), kUid);
        }
    }
}

TEST_P(IntruderTest, opensNoThreadOfAnAssignedProcessWithItsToken) {
    int pipes[2];
    ASSERT_EQ(pipe2(pipes, O_CLOEXEC), 0);
    Child victim([path = path(), to = pipes[1]](Child::Door& door) {
        door.await('g');
        Bare process(path);
        process.becomeProcess();
        require(write(to, &process.token(), sizeof(frame::Token)) == sizeof(frame::Token), "pipe");
        door.await('e');
    });
    ASSERT_EQ(hub().assign(victim.pid(), kUid), Status::Done);
    victim.tell('g');
    Child intruder([path = path(), from = pipes[0]](Child::Door&) {
        frame::Hello hello;
        hello.header.kind = frame::Kind::HelloThread;
        require(read(from, &hello.token, sizeof(hello.token)) == sizeof(hello.token), "pipe");
        becomeIntruder();
        const Bare thread(path);
        require(thread.send(bytesOf(hello)) == 0 && thread.cutOff(), "the token is taken");
    });
    EXPECT_EQ(intruder.wait(), 0);
    close(pipes[0]);
    close(pipes[1]);
}

TEST_P(IntruderTest, sendsNothingThroughAnAssignedProcesssConnection) {
    Child victim([path = path()](Child::Door& door) {
        door.await('g');
        for (const bool isThread : {false, true}) {
            Bare process(path);
            process.becomeProcess();
            std::optional<Bare> thread;
            if (isThread) thread.emplace(path, process);
            // It inherits the connection as it would receive it: the same open socket.
            Child intruder([&](Child::Door&) {
                becomeIntruder();
                require(isRefusedOn(thread ? *thread : process), "a frame is taken");
            });
            require(intruder.wait() == 0, "intruder");
        }
        door.tell('d');
        door.await('e');
    });
    ASSERT_EQ(hub().assign(victim.pid(), kUid), Status::Done);
    victim.tell('g');
    victim.await('d');
}

TEST_P(IntruderTest, isNotTheAssignedProcessThroughAConnectionThatItMadeBefore) {
    // The other way round: the intruder connects, and the assigned process says its greeting.
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    Child victim([path = path(), from = ends[0]](Child::Door& door) {
        door.await('g');
        Received received;
        uint8_t byte = 0;
        require(receiveRecord(from, {&byte, 1}, /*flags=*/0, &received) == 0, "receive");
        require(received.descriptors.size() == 1, "no descriptor");
        frame::Hello hello;
        hello.header.kind = frame::Kind::HelloProcess;
        frame::Answer answer;
        require(ask(received.descriptors[0].get(), hello, &answer) != 0, "it is greeted");
    });
    ASSERT_EQ(hub().assign(victim.pid(), kUid), Status::Done);
    Child intruder([path = path(), to = ends[1]](Child::Door& door) {
        becomeIntruder();
        std::string error;
        const unique_fd place = findHub(path, &error);
        unique_fd socket;
        require(place.ok() && connectTo(place.get(), 5, &socket) == 0, "connect");
        const iovec byte{const_cast<char*>("x"), 1};
        const int passed = socket.get();
        require(sendRecord(to, {&byte, 1}, {&passed, 1}, nullptr, /*flags=*/0) == 0, "send");
        door.tell('s');
        door.await('e');
    });
    intruder.await('s');
    victim.tell('g');
    EXPECT_EQ(victim.wait(), 0);
    close(ends[0]);
    close(ends[1]);
}

INSTANTIATE_TEST_SUITE_P(, IntruderTest, ::testing::Values(Intruder::SameUser, Intruder::OtherUser),
                         nameOf);

}  // namespace
}  // namespace binderhost::tests
