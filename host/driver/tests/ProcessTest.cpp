// SPDX-License-Identifier: Apache-2.0
//
// Real processes: killed at every step, forked, under another uid; nothing is left of them.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <future>
#include <optional>
#include <set>
#include <thread>

#include "Child.h"
#include "HubFixture.h"
#include "RawClient.h"

namespace binderhost::tests {
namespace {

constexpr uint64_t kPtr = 0x1000;
constexpr uint64_t kCookie = 0xc00c1e;
constexpr uid_t kOtherUid = 12345;

class ProcessTest : public HubFixture {
protected:
    uint32_t keepNode(RawClient* server) {
        const Return call = server->expect(BR_TRANSACTION);
        const uint32_t handle = call.object(0).handle;
        server->write(Commands()
                              .count(BC_ACQUIRE, handle)
                              .death(BC_REQUEST_DEATH_NOTIFICATION, handle, kCookie)
                              .freeBuffer(call)
                              .reply());
        (void)server->expect(BR_TRANSACTION_COMPLETE);
        return handle;
    }
};

TEST_F(ProcessTest, theCallerIsNamedByItsPidAndUid) {
    RawClient server(path());
    server.publish();
    Child client([&](Child::Door&) {
        RawClient me(path());
        me.write(Commands().call(0, 1));
        (void)me.expectReply();
    });
    const Return call = server.expect(BR_TRANSACTION);
    EXPECT_EQ(call.data().sender_pid, client.pid());
    EXPECT_EQ(call.data().sender_euid, geteuid());
    server.write(Commands().freeBuffer(call).reply());
    EXPECT_EQ(client.wait(), 0);
}

TEST_F(ProcessTest, aProcessThatChangesItsUidIsSeenUnderTheNewOneAtOnce) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    RawClient server(path());
    server.publish();
    // Where the new user cannot go, so that a later thread needs more than the path.
    ASSERT_EQ(chmod(folder().c_str(), 0700), 0);
    Child client([&](Child::Door&) {
        RawClient me(path());
        me.write(Commands().oneway(0, 1));
        (void)me.expect(BR_TRANSACTION_COMPLETE);
        require(setegid(kOtherUid) == 0 && seteuid(kOtherUid) == 0, "seteuid");
        me.write(Commands().oneway(0, 2));
        (void)me.expect(BR_TRANSACTION_COMPLETE);
        require(setresuid(kOtherUid, kOtherUid, kOtherUid) == 0, "setresuid");
        me.write(Commands().oneway(0, 3));
        (void)me.expect(BR_TRANSACTION_COMPLETE);
        std::thread([&me] {
            RawClient late(&me);
            late.write(Commands().oneway(0, 4));
            (void)late.expect(BR_TRANSACTION_COMPLETE);
        }).join();
    });
    for (const uid_t uid : {uid_t{0}, kOtherUid, kOtherUid, kOtherUid}) {
        const Return call = server.expect(BR_TRANSACTION);
        EXPECT_EQ(call.data().sender_euid, uid) << call.data().code;
        server.write(Commands().freeBuffer(call));
    }
    EXPECT_EQ(client.wait(), 0);
}

TEST_F(ProcessTest, onlyTheFirstUidMayBeContextManagerAgain) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    RawClient client(path());
    {
        RawClient first(path());
        first.publish();
        client.write(
                Commands().count(BC_ACQUIRE, 0).death(BC_REQUEST_DEATH_NOTIFICATION, 0, kCookie));
        awaitStat("death_links", 1);
    }
    awaitStat("processes", 1);
    Child stranger([&](Child::Door&) {
        require(seteuid(kOtherUid) == 0, "seteuid");
        RawClient me(path());
        require(me.driver().becomeContextManager() == -EPERM, "somebody else took handle 0");
    });
    EXPECT_EQ(stranger.wait(), 0);
    RawClient again(path());
    again.publish();
    client.write(Commands().oneway(0, 1));
    EXPECT_EQ(again.expect(BR_TRANSACTION).data().code, 1u);
    // What it held and was linked to was the first one's.
    (void)client.expect(BR_TRANSACTION_COMPLETE);
    client.write(Commands().looper());
    EXPECT_EQ(client.expect(BR_DEAD_BINDER).as<uint64_t>(), kCookie);
}

TEST_F(ProcessTest, aForkedChildHasNoPartInItsParentsDriver) {
    RawClient server(path()), parent(path());
    server.publish();
    parent.write(Commands().oneway(0, 1));
    (void)parent.expect(BR_TRANSACTION_COMPLETE);
    Child child([&](Child::Door&) {
        require(parent.exchange(Commands().oneway(0, 66), /*read=*/false) == -ECONNREFUSED,
                "the child used its parent's driver");
        require(parent.driver().setMaxThreads(3) == -ECONNREFUSED, "control");
        RawClient own(path());
        own.write(Commands().oneway(0, 2));
        (void)own.expect(BR_TRANSACTION_COMPLETE);
    });
    EXPECT_EQ(child.wait(), 0);
    parent.write(Commands().oneway(0, 3));
    (void)parent.expect(BR_TRANSACTION_COMPLETE);
    for (uint32_t code = 1; code <= 3; code++) {
        const Return call = server.expect(BR_TRANSACTION);
        EXPECT_EQ(call.data().code, code);
        server.write(Commands().freeBuffer(call));
    }
}

TEST_F(ProcessTest, nothingOfTheDriverIsOpenInAProgramThatIsExecuted) {
    const auto openNow = [] {
        std::set<int> descriptors;
        for (int fd = 0; fd < 1024; fd++) {
            if (fcntl(fd, F_GETFD) >= 0) descriptors.insert(fd);
        }
        return descriptors;
    };
    const std::set<int> before = openNow();
    RawClient server(path()), client(path());
    server.publish();
    client.write(Commands().oneway(0, 1));
    (void)client.expect(BR_TRANSACTION_COMPLETE);
    int ofTheDriver = 0;
    for (const int fd : openNow()) {
        if (before.contains(fd)) continue;
        ofTheDriver++;
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC) << fd;
    }
    // At the least a connection of each process and one of each thread.
    EXPECT_GE(ofTheDriver, 4);
}

TEST_F(ProcessTest, aProcessIsDeadAlsoWhileAChildThatItForkedLives) {
    RawClient server(path());
    server.publish();
    int hold[2];
    ASSERT_EQ(pipe2(hold, O_CLOEXEC), 0);
    Child service([&](Child::Door& door) {
        RawClient me(path());
        me.write(Commands().call(0, 1, Payload().node(kPtr)));
        (void)me.expectReply();
        if (fork() == 0) {
            // Stays until the test closes its end.
            close(hold[1]);
            char byte = 0;
            _exit(read(hold[0], &byte, 1) == 0 ? 0 : 1);
        }
        door.tell('f');
        door.await('-');
    });
    (void)keepNode(&server);
    service.await('f');
    service.killAndWait();
    EXPECT_EQ(server.expect(BR_DEAD_BINDER).as<uint64_t>(), kCookie);
    close(hold[0]);
    close(hold[1]);
}

/** Where the server stands when it is killed, and what its caller then gets. */
struct Step {
    const char* name;
    void (*server)(RawClient* me, Child::Door* door);
    uint32_t answer;
};

const Step kSteps[] = {
        {"before it reads the call", [](RawClient*, Child::Door* door) { door->tell('k'); },
         BR_DEAD_REPLY},
        {"holding the call",
         [](RawClient* me, Child::Door* door) {
             (void)me->expect(BR_TRANSACTION);
             door->tell('k');
         },
         BR_DEAD_REPLY},
        {"after freeing the buffer, before the reply",
         [](RawClient* me, Child::Door* door) {
             const Return call = me->expect(BR_TRANSACTION);
             me->write(Commands().freeBuffer(call));
             door->tell('k');
         },
         BR_DEAD_REPLY},
        {"after the reply",
         [](RawClient* me, Child::Door* door) {
             const Return call = me->expect(BR_TRANSACTION);
             me->write(Commands().freeBuffer(call).reply("done"));
             door->tell('k');
         },
         BR_REPLY},
};

TEST_F(ProcessTest, aServerKilledAtAnyStepAnswersItsCallerOnce) {
    for (const Step& step : kSteps) {
        RawClient registry(path());
        registry.publish();
        Child server([&](Child::Door& door) {
            RawClient me(path());
            me.write(Commands().call(0, 1, Payload().node(kPtr)));
            (void)me.expectReply();
            me.write(Commands().looper());
            door.await('g');
            step.server(&me, &door);
            door.await('-');
        });
        const uint32_t handle = keepNode(&registry);
        registry.write(Commands().call(handle, 5));
        server.tell('g');
        server.await('k');
        server.killAndWait();
        (void)registry.expect(BR_TRANSACTION_COMPLETE);
        EXPECT_EQ(registry.nextEvent().command, step.answer) << step.name;
        EXPECT_EQ(registry.nextEvent().command, uint32_t{BR_DEAD_BINDER}) << step.name;
    }
    expectEmptyHub();
}

TEST_F(ProcessTest, aCallerInANestedCallHearsOfTheDeathWhenItIsBackFromIt) {
    RawClient registry(path()), third(path());
    registry.publish();
    Child server([&](Child::Door& door) {
        RawClient me(path());
        me.write(Commands().call(0, 1, Payload().node(kPtr)));
        (void)me.expectReply();
        me.write(Commands().looper());
        (void)me.expect(BR_TRANSACTION);
        me.write(Commands().call(0, 9));
        door.await('-');
    });
    const uint32_t handle = keepNode(&registry);
    registry.write(Commands().call(handle, 5));
    (void)registry.expect(BR_TRANSACTION_COMPLETE);
    const Return nested = registry.expect(BR_TRANSACTION);
    EXPECT_EQ(nested.data().code, 9u);
    server.killAndWait();
    awaitStat("processes", 2);
    // Inside the nested call a call elsewhere has its own answer.
    registry.write(Commands().call(handle, 6));
    (void)registry.expect(BR_DEAD_REPLY);
    EXPECT_EQ(stats()["queued"], 1u) << "the death notice alone";
    registry.write(Commands().freeBuffer(nested).reply("too late"));
    (void)registry.expect(BR_TRANSACTION_COMPLETE);
    (void)registry.expect(BR_DEAD_REPLY);
    (void)registry.expect(BR_DEAD_BINDER);
}

TEST_F(ProcessTest, aCallerKilledInMidCallDropsItsReplySilently) {
    RawClient server(path());
    server.publish();
    for (const bool beforeRead : {true, false}) {
        Child client([&](Child::Door& door) {
            RawClient me(path());
            me.write(Commands().call(0, 1, Payload(std::string(50'000, 'x')).node(kPtr)));
            door.tell('s');
            door.await('-');
        });
        client.await('s');
        Return call;
        if (!beforeRead) call = server.expect(BR_TRANSACTION);
        const pid_t pid = client.pid();
        client.killAndWait();
        awaitStat("processes", 1);
        if (beforeRead) call = server.expect(BR_TRANSACTION);
        EXPECT_EQ(call.data().sender_pid, beforeRead ? 0 : pid);
        server.write(Commands().freeBuffer(call).reply("to nobody"));
        (void)server.expect(BR_TRANSACTION_COMPLETE);
    }
    EXPECT_EQ(stats()["buffers"], 0u);
    EXPECT_EQ(stats()["handles"], 0u);
}

TEST_F(ProcessTest, aReceiverKilledWithOnewayCallsQueuedLeavesNothing) {
    RawClient registry(path());
    registry.publish();
    Child service([&](Child::Door& door) {
        RawClient me(path());
        me.write(Commands().call(0, 1, Payload().node(kPtr)));
        (void)me.expectReply();
        door.await('-');
    });
    const uint32_t handle = keepNode(&registry);
    for (int i = 0; i < 5; i++) {
        registry.write(Commands().oneway(handle, 1, Payload().descriptor(STDERR_FILENO)));
        (void)registry.expect(BR_TRANSACTION_COMPLETE);
    }
    EXPECT_EQ(stats()["descriptors"], 5u);
    service.killAndWait();
    (void)registry.expect(BR_DEAD_BINDER);
    EXPECT_EQ(stats()["descriptors"], 0u);
    EXPECT_EQ(stats()["buffers"], 0u);
}

TEST_F(ProcessTest, aThreadThatEndsAnswersItsCallersAndItsProcessLivesOn) {
    RawClient server(path()), client(path());
    server.publish();
    client.write(Commands().call(0, 1));
    std::thread([&server] {
        RawClient me(&server);
        me.write(Commands().looper());
        (void)me.expect(BR_TRANSACTION);
    }).join();
    (void)client.expect(BR_TRANSACTION_COMPLETE);
    (void)client.expect(BR_DEAD_REPLY);
    client.write(Commands().call(0, 2));
    const Return call = server.expect(BR_TRANSACTION);
    server.write(Commands().freeBuffer(call).reply("alive"));
    EXPECT_EQ(client.expectReply().text(), "alive");
}

TEST_F(ProcessTest, aThreadThatLeavesWithACallUnreadGivesItBack) {
    RawClient server(path()), client(path());
    server.publish();
    std::promise<void> replied, called;
    client.write(Commands().call(0, 1));
    std::thread pool([&] {
        RawClient me(&server);
        me.write(Commands().looper());
        const Return call = me.expect(BR_TRANSACTION);
        // The hub takes the thread for idle now and hands it the next call.
        EXPECT_EQ(me.exchange(Commands().freeBuffer(call).reply(), /*read=*/true), 0);
        replied.set_value();
        called.get_future().wait();
        me.driver().exitThread();
    });
    replied.get_future().wait();
    const Return reply = client.expectReply();
    client.write(Commands().call(0, 2, Payload().descriptor(STDERR_FILENO)));
    awaitStat("idle", 0);
    EXPECT_EQ(stats()["buffers"], 2u);
    called.set_value();
    pool.join();
    (void)client.expect(BR_TRANSACTION_COMPLETE);
    (void)client.expect(BR_DEAD_REPLY);
    awaitStat("buffers", 1);  // the first reply, which the client still holds
    client.write(Commands().freeBuffer(reply));
    awaitStat("buffers", 0);
}

TEST_F(ProcessTest, aDeathThatALeavingThreadHasNotReadIsToldToAnother) {
    RawClient server(path()), client(path());
    std::optional<RawClient> mortal(path());
    server.publish();
    mortal->write(Commands().call(0, 1, Payload().node(kPtr)));
    (void)keepNode(&server);
    client.write(Commands().call(0, 1));
    std::promise<void> replied, died;
    std::thread pool([&] {
        RawClient me(&server);
        me.write(Commands().looper());
        const Return call = me.expect(BR_TRANSACTION);
        EXPECT_EQ(me.exchange(Commands().freeBuffer(call).reply(), /*read=*/true), 0);
        replied.set_value();
        died.get_future().wait();
        me.driver().exitThread();
    });
    replied.get_future().wait();
    (void)client.expectReply();
    mortal.reset();
    awaitStat("processes", 2);
    EXPECT_EQ(stats()["queued"], 0u) << "the leaving thread has it";
    died.set_value();
    pool.join();
    ASSERT_EQ(stats()["queued"], 1u);
    EXPECT_EQ(server.expect(BR_DEAD_BINDER).as<uint64_t>(), kCookie);
}

TEST_F(ProcessTest, twoHundredQuickComersAndGoersLeaveNothing) {
    {
        RawClient server(path());
        server.publish();
        for (int i = 0; i < 200; i++) {
            RawClient client(path());
            client.write(Commands().call(0, 1, Payload().node(kPtr)));
            const Return call = server.expect(BR_TRANSACTION);
            server.write(Commands().freeBuffer(call).reply());
            (void)server.expect(BR_TRANSACTION_COMPLETE);
            if (i % 2) (void)client.expectReply();
        }
    }
    expectEmptyHub();
}

TEST_F(ProcessTest, whenTheHubGoesEveryCallIsRefusedForGood) {
    RawClient client(path());
    client.write(Commands().looper());
    Child killer([&](Child::Door&) { kill(hubPid(), SIGKILL); });
    EXPECT_EQ(client.exchange({}, /*read=*/true), -ECONNREFUSED);
    EXPECT_EQ(client.exchange(Commands().call(0, 1), /*read=*/true), -ECONNREFUSED);
    EXPECT_EQ(client.driver().setMaxThreads(1), -ECONNREFUSED);
    stopHub(SIGKILL);
    startHub();  // takes over the dead one's socket
    EXPECT_EQ(client.exchange(Commands().call(0, 1), /*read=*/true), -ECONNREFUSED);
}

TEST_F(ProcessTest, aSignalInterruptsAWaitAndNothingIsLost) {
    RawClient server(path());
    server.publish();
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction before {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    const pthread_t self = pthread_self();
    std::thread poker([&] {
        awaitStat("idle", 1);
        pthread_kill(self, SIGUSR1);
    });
    EXPECT_EQ(server.exchange({}, /*read=*/true), -EINTR);
    poker.join();
    RawClient client(path());
    client.write(Commands().oneway(0, 3));
    EXPECT_EQ(server.expect(BR_TRANSACTION).data().code, 3u);
    sigaction(SIGUSR1, &before, nullptr);
}

}  // namespace
}  // namespace binderhost::tests
