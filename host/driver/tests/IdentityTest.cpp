// SPDX-License-Identifier: Apache-2.0
//
// Uids that the hub vouches for: who gets one, who cannot, and who sees it.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "Bare.h"
#include "Child.h"
#include "ControlFixture.h"
#include "PeerClient.h"
#include "RawClient.h"
#include "embedded/HubConnection.h"
#include "embedded/Socket.h"

namespace binderhost::tests {
namespace {

using Status = HubControl::Status;

/** Waits to be told, then has the driver until it is told again; and so on. */
class IdentityTest : public ControlFixture {
protected:
    Child mChild{[path = path()](Child::Door& door) {
        for (;;) {
            door.await('o');
            RawClient me(path);
            door.tell('o');
            door.await('c');
            me.write(Commands().call(0, 1));
            (void)me.expectReply();
            door.await('x');
        }
    }};

    void openDriver() const {
        mChild.tell('o');
        mChild.await('o');
    }
    /** The uid under which the child calls. */
    uid_t callersUid() {
        mChild.tell('c');
        const Return call = mRegistry.serve();
        EXPECT_EQ(call.data().sender_pid, mChild.pid());
        return call.data().sender_euid;
    }
    void SetUp() override {
        ControlFixture::SetUp();
        mRegistry.publish();
    }

    RawClient mRegistry{path()};
};

TEST_F(IdentityTest, whoHasAnAssignedUidCallsUnderItAlsoWhenNobodyControlsTheHub) {
    ASSERT_EQ(hub().assign(mChild.pid(), kUid), Status::Done);
    hangUp();
    openDriver();
    EXPECT_EQ(callersUid(), kUid);
    EXPECT_EQ(uidInTable(mChild.pid()), kUid);
}

TEST_F(IdentityTest, onlyItsOwnerReachesAHubThatVouches) {
    struct stat status {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    if (geteuid() != 0) GTEST_SKIP() << "only root has children of other users";
    Child other([path = path()](Child::Door&) {
        require(setuid(PeerClient::kOrdinaryUid) == 0, "setuid");
        std::string error;
        const unique_fd place = findHub(path, &error);
        unique_fd socket;
        require(place.ok(), "the folder is open to all");
        require(connectTo(place.get(), /*timeoutSeconds=*/5, &socket) == -EACCES, "connect");
    });
    EXPECT_EQ(other.wait(), 0);
}

TEST_F(IdentityTest, lettersComeFromTheAssignedUidToo) {
    Child sender([path = path()](Child::Door& door) {
        door.await('g');
        RawClient me(path);
        me.write(Commands().call(0, 1));
        const Return reply = me.expectReply();
        for (uint32_t code = 0; code < 5; code++)
            me.post(reply.object(0).handle, code);
        door.await('e');
    });
    ASSERT_EQ(hub().assign(sender.pid(), kUid), Status::Done);
    sender.tell('g');
    (void)mRegistry.serve(Payload().node(kPtr));
    for (uint32_t code = 0; code < 5; code++) {
        const Return notice = mRegistry.take();
        EXPECT_EQ(notice.data().code, code);
        EXPECT_EQ(notice.data().sender_euid, kUid);
    }
    EXPECT_GT(stats().at("letters_taken"), 0u) << "root's, too: it is given no other uid";
}

/** Says when it is ready, and waits to be ended. */
void rest(const Child::Door& door) {
    door.tell('r');
    door.await('e');
}

TEST_F(IdentityTest, onlyAChildThatRunsAsTheOwnerAndHasNotConnectedIsGivenOne) {
    Child connected([path = path()](Child::Door& door) {
        RawClient me(path);
        rest(door);
    });
    Child stranger([path = path()](Child::Door& door) {
        const Bare silent(path);
        rest(door);
    });
    Child other([](Child::Door& door) {
        if (geteuid() == 0) require(setuid(PeerClient::kOrdinaryUid) == 0, "setuid");
        rest(door);
    });
    pid_t grandchild = 0;
    int numbers[2];
    ASSERT_EQ(pipe2(numbers, O_CLOEXEC), 0);
    Child parent([write = numbers[1]](Child::Door& door) {
        const Child own([](Child::Door& inner) { inner.await('e'); });
        const pid_t pid = own.pid();
        require(::write(write, &pid, sizeof(pid)) == sizeof(pid), "write");
        door.await('e');
    });
    ASSERT_EQ(read(numbers[0], &grandchild, sizeof(grandchild)), ssize_t{sizeof(grandchild)});
    close(numbers[0]);
    close(numbers[1]);
    Child zombie([](Child::Door&) {});
    while (!zombie.ended()) {
    }
    Child reaped([](Child::Door&) {});
    const pid_t nobody = reaped.pid();
    ASSERT_EQ(reaped.wait(), 0);
    for (const Child* each : {&connected, &stranger, &other})
        each->await('r');

    const struct {
        const char* name;
        pid_t pid;
        Status expected;
    } kCases[] = {
            {"nobody", 0, Status::Gone},
            {"everybody", -1, Status::Gone},
            {"the machine's first process", 1, Status::NotAChild},
            {"the launcher itself", getpid(), Status::NotAChild},
            {"a process of the same user outside the session", getppid(), Status::NotAChild},
            {"a child's child", grandchild, Status::NotAChild},
            {"one that has ended", zombie.pid(), Status::Gone},
            {"one that is gone", nobody, Status::Gone},
            {"one that has opened the driver", connected.pid(), Status::AlreadyConnected},
            {"one that has only connected", stranger.pid(), Status::AlreadyConnected},
            // Only root has children of other users.
            {"another user's", other.pid(), geteuid() == 0 ? Status::OtherUser : Status::Done},
            {"a child", mChild.pid(), Status::Done},
            {"the same again", mChild.pid(), Status::AlreadyAssigned},
    };
    for (const auto& each : kCases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(hub().assign(each.pid, kUid), each.expected);
    }
    EXPECT_EQ(uidInTable(connected.pid()), std::nullopt);
    EXPECT_EQ(uidInTable(mChild.pid()), kUid);
}

TEST_F(IdentityTest, aUidIsANumberThatFitsASignedOne) {
    const struct {
        uid_t uid;
        Status expected;
    } kCases[] = {{static_cast<uid_t>(-1), Status::NoUid},
                  {uid_t{1} << 31, Status::NoUid},
                  {(uid_t{1} << 31) - 1, Status::Done},
                  {0, Status::AlreadyAssigned}};
    for (const auto& each : kCases) {
        SCOPED_TRACE(each.uid);
        EXPECT_EQ(hub().assign(mChild.pid(), each.uid), each.expected);
    }
    EXPECT_EQ(hub().reassign(mChild.pid(), static_cast<uid_t>(-1)), Status::NoUid);
    openDriver();
    EXPECT_EQ(callersUid(), (uid_t{1} << 31) - 1);
}

TEST_F(IdentityTest, anotherUidTakesEffectWhenTheProcessHasNoConnection) {
    EXPECT_EQ(hub().reassign(mChild.pid(), 1), Status::NotAssigned);
    ASSERT_EQ(hub().assign(mChild.pid(), kUid), Status::Done);
    ASSERT_EQ(hub().reassign(mChild.pid(), 10051), Status::Done);
    EXPECT_EQ(uidInTable(mChild.pid()), 10051u) << "it has not connected";
    openDriver();
    ASSERT_EQ(hub().reassign(mChild.pid(), 10052), Status::Done);
    EXPECT_EQ(uidInTable(mChild.pid()), 10051u) << "its calls still come from this one";
    EXPECT_EQ(callersUid(), 10051u);
    mChild.tell('x');
    openDriver();
    EXPECT_EQ(uidInTable(mChild.pid()), 10052u);
    EXPECT_EQ(callersUid(), 10052u);
}

TEST_F(IdentityTest, whatAnEndedProcessHadIsNobodyElses) {
    ASSERT_EQ(hub().assign(mChild.pid(), kUid), Status::Done);
    std::string error;
    const auto uids = AssignedUids::open(path(), &error);
    ASSERT_NE(uids, nullptr) << error;
    const pid_t pid = mChild.pid();
    const uint64_t folder = folderOf(pid);
    EXPECT_EQ(uids->of(pid, folder), kUid);
    EXPECT_EQ(uids->of(pid, folder + 1), std::nullopt) << "another process of the same pid";
    EXPECT_EQ(uids->of(getpid(), folder), std::nullopt);
    mChild.kill();
    while (!mChild.ended()) {
    }
    EXPECT_EQ(uids->of(pid, folder), kUid) << "as long as its parent has not taken note";
    EXPECT_EQ(hub().awaitQuiet(std::array{getpid()}, kPatience), Status::Done) << "the hub rests";
    EXPECT_EQ(hub().reassign(pid, 1), Status::Gone);
    (void)mChild.wait();
    EXPECT_EQ(hub().reassign(pid, 1), Status::NotAssigned);
    // Another assignment clears away what is left of the dead.
    Child next([](Child::Door& door) { door.await('e'); });
    ASSERT_EQ(hub().assign(next.pid(), kUid), Status::Done);
    EXPECT_EQ(uids->of(pid, folder), std::nullopt);
}

TEST_F(IdentityTest, aChildOfAnAssignedProcessHasNoPartInIt) {
    Child parent([path = path()](Child::Door& door) {
        door.await('g');
        std::string error;
        require(AssignedUids::open(path, &error)->ofThisProcess() == kUid, "its own uid");
        Child own([path](Child::Door&) {
            std::string none;
            const uid_t uid = AssignedUids::open(path, &none)->ofThisProcess();
            require(uid == AssignedUids::kOthersUid, "its child's uid");
            RawClient me(path);
            me.write(Commands().call(0, 1));
            (void)me.expectReply();
        });
        require(own.wait() == 0, "grandchild");
        door.tell('d');
        door.await('e');
    });
    ASSERT_EQ(hub().assign(parent.pid(), kUid), Status::Done);
    parent.tell('g');
    EXPECT_EQ(mRegistry.serve().data().sender_euid, AssignedUids::kOthersUid);
    parent.await('d');
}

TEST_F(IdentityTest, theControlConnectionIsNobodyElses) {
    const auto sockets = [] {
        std::vector<int> found;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            const int fd = std::stoi(entry.path().filename());
            int type = 0;
            socklen_t size = sizeof(type);
            const bool isSocket = getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0;
            if (isSocket && type == SOCK_SEQPACKET) found.push_back(fd);
        }
        return found;
    };
    const std::vector<int> own = sockets();
    ASSERT_FALSE(own.empty());
    for (const int fd : own)
        EXPECT_TRUE((fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0) << "it would pass to other programs";
    Child forked([&sockets](Child::Door&) { require(sockets().empty(), "sockets are left"); });
    EXPECT_EQ(forked.wait(), 0);
}

}  // namespace
}  // namespace binderhost::tests
