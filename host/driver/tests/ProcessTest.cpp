// SPDX-License-Identifier: Apache-2.0
//
// Real processes: killed at every step, forked, under another uid; nothing is left of them.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <optional>

#include "DriverFixture.h"

namespace binderhost::tests {
namespace {

constexpr uid_t kOtherUid = 12345;

class ProcessTest : public DriverFixture {
protected:
    /** The server keeps a node of the client's, and is linked to its death. */
    static uint32_t giveNode(PeerClient* client, PeerClient* server) {
        const uint32_t handle = client->giveNode(server);
        server->write(Commands().death(BC_REQUEST_DEATH_NOTIFICATION, handle, kCookie));
        return handle;
    }
};

/** Effective; with the argument's sign turned, for good. */
int becomeOther(Driver&, int64_t uid) {
    const uid_t wanted = static_cast<uid_t>(uid < 0 ? -uid : uid);
    const bool done = uid < 0 ? setresuid(wanted, wanted, wanted) == 0
                              : setegid(wanted) == 0 && seteuid(wanted) == 0;
    return done ? 0 : -errno;
}

TEST_P(ProcessTest, aProcessThatChangesItsUidIsSeenUnderTheNewOneAtOnce) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    PeerClient server(path()), client(path());
    server.publish();
    // Where the new user cannot go, so that a later thread needs more than the path.
    if (!onKernel()) {
        ASSERT_EQ(chmod(hub().folder().c_str(), 0700), 0);
    }
    const auto callAs = [&](PeerClient* caller, uid_t uid) {
        caller->post(0, 1);
        EXPECT_EQ(server.take().data().sender_euid, uid);
    };
    callAs(&client, 0);
    ASSERT_EQ(client.run(&becomeOther, kOtherUid), 0);
    callAs(&client, kOtherUid);
    ASSERT_EQ(client.run(&becomeOther, -int64_t{kOtherUid}), 0);
    callAs(&client, kOtherUid);
    PeerClient late(&client);
    callAs(&late, kOtherUid);
}

TEST_P(ProcessTest, onlyTheFirstUidMayBeContextManagerAgain) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    PeerClient client(path()), stranger(path());
    {
        PeerClient first(path());
        first.publish();
        client.write(
                Commands().count(BC_ACQUIRE, 0).death(BC_REQUEST_DEATH_NOTIFICATION, 0, kCookie));
        awaitStat("death_links", 1);
    }
    awaitStat("processes", 2);
    ASSERT_EQ(stranger.run(&becomeOther, kOtherUid), 0);
    EXPECT_EQ(stranger.becomeContextManager(), -EPERM);
    PeerClient again(path());
    again.publish();
    client.write(Commands().oneway(0, 1));
    EXPECT_EQ(again.expect(BR_TRANSACTION).data().code, 1u);
    // What it held and was linked to was the first one's.
    (void)client.expect(BR_TRANSACTION_COMPLETE);
    client.write(Commands().looper());
    EXPECT_EQ(client.expect(BR_DEAD_BINDER).as<uint64_t>(), kCookie);
}

/** What a forked child finds wrong with its parent's driver; 0 when it is refused. */
int tryInChild(Driver& parents, pid_t child) {
    if (child == 0) {
        binder_write_read bwr{};
        if (parents.writeRead(&bwr) != -ECONNREFUSED) _exit(1);
        _exit(parents.setMaxThreads(3) == -ECONNREFUSED ? 0 : 2);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

TEST_P(ProcessTest, aForkedChildHasNoPartInItsParentsDriver) {
    PeerClient server(path()), parent(path());
    server.publish();
    const auto callAndServe = [&] {
        parent.post(0, 1);
        (void)server.take();
    };
    callAndServe();
    EXPECT_EQ(parent.run([](Driver& driver, int64_t) { return tryInChild(driver, fork()); }), 0);
    callAndServe();
    // No fork handler of the C library runs for this one.
    EXPECT_EQ(parent.run([](Driver& driver, int64_t) {
        return tryInChild(driver, static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0)));
    }),
              0);
    callAndServe();
}

/** Its descriptors that are open across exec, beside the standard ones. */
int countInheritable(Driver&, int64_t) {
    int found = 0;
    for (int fd = 3; fd < 1024; fd++) {
        const int flags = fcntl(fd, F_GETFD);
        if (flags >= 0 && (flags & FD_CLOEXEC) == 0) found++;
    }
    return found;
}

TEST_P(ProcessTest, nothingOfTheDriverIsOpenInAProgramThatIsExecuted) {
    PeerClient server(path()), client(path());
    server.publish();
    client.post(0, 1);
    EXPECT_EQ(client.run(&countInheritable), 0);
    EXPECT_EQ(server.run(&countInheritable), 0);
}

TEST_P(ProcessTest, aProcessIsDeadAlsoWhileAChildThatItForkedLives) {
    PeerClient server(path()), service(path());
    server.publish();
    (void)giveNode(&service, &server);
    const pid_t child = service.run([](Driver&, int64_t) -> int {
        const pid_t forked = fork();
        if (forked == 0) {
            for (;;)
                pause();
        }
        return forked;
    });
    ASSERT_GT(child, 0);
    service.kill();
    EXPECT_EQ(server.expect(BR_DEAD_BINDER).as<uint64_t>(), kCookie);
    EXPECT_EQ(kill(child, SIGKILL), 0) << "it was no longer there";
}

/** Where the server stands when it is killed, and what its caller then gets. */
struct Step {
    const char* name;
    void (*serve)(PeerClient* server);
    uint32_t answer;
};

const Step kSteps[] = {
        {"before it reads the call", [](PeerClient*) {}, BR_DEAD_REPLY},
        {"holding the call", [](PeerClient* me) { (void)me->expect(BR_TRANSACTION); },
         BR_DEAD_REPLY},
        {"after freeing the buffer", [](PeerClient* me) { (void)me->take(); }, BR_DEAD_REPLY},
        {"after the reply",
         [](PeerClient* me) {
             me->write(Commands().freeBuffer(me->expect(BR_TRANSACTION)).reply("done"));
         },
         BR_REPLY},
};

TEST_P(ProcessTest, aServerKilledAtAnyStepAnswersItsCallerOnce) {
    for (const Step& step : kSteps) {
        PeerClient registry(path()), server(path());
        registry.publish();
        const uint32_t handle = giveNode(&server, &registry);
        server.write(Commands().looper());
        registry.write(Commands().call(handle, 5));
        expectStat("processes", 2);  // and the call is on its way
        step.serve(&server);
        server.kill();
        (void)registry.expect(BR_TRANSACTION_COMPLETE);
        EXPECT_EQ(registry.nextEvent().command, step.answer) << step.name;
        EXPECT_EQ(registry.nextEvent().command, uint32_t{BR_DEAD_BINDER}) << step.name;
        registry.kill();
        awaitStat("processes", 0);
    }
}

TEST_P(ProcessTest, aCallerInANestedCallHearsOfTheDeathWhenItIsBackFromIt) {
    PeerClient registry(path()), server(path());
    registry.publish();
    const uint32_t handle = giveNode(&server, &registry);
    server.write(Commands().looper());
    registry.write(Commands().call(handle, 5));
    (void)server.expect(BR_TRANSACTION);
    server.write(Commands().call(0, 9));
    (void)registry.expect(BR_TRANSACTION_COMPLETE);
    const Return nested = registry.expect(BR_TRANSACTION);
    EXPECT_EQ(nested.data().code, 9u);
    server.kill();
    awaitStat("processes", 1);
    // Inside the nested call a call elsewhere has its own answer.
    registry.write(Commands().call(handle, 6));
    (void)registry.expect(BR_DEAD_REPLY);
    expectStat("queued", 1);  // the death notice alone
    registry.write(Commands().freeBuffer(nested).reply("too late"));
    (void)registry.expect(BR_TRANSACTION_COMPLETE);
    (void)registry.expect(BR_DEAD_REPLY);
    (void)registry.expect(BR_DEAD_BINDER);
}

TEST_P(ProcessTest, aCallerKilledInMidCallDropsItsReplySilently) {
    PeerClient server(path());
    server.publish();
    for (const bool beforeRead : {true, false}) {
        PeerClient client(path());
        client.write(Commands().call(0, 1, Payload(std::string(50'000, 'x')).node(kPtr)));
        Return call;
        if (!beforeRead) call = server.expect(BR_TRANSACTION);
        const pid_t pid = client.pid();
        client.kill();
        awaitStat("processes", 1);
        if (beforeRead) call = server.expect(BR_TRANSACTION);
        EXPECT_EQ(call.data().sender_pid, beforeRead ? 0 : pid);
        server.write(Commands().freeBuffer(call).reply("to nobody"));
        (void)server.expect(BR_TRANSACTION_COMPLETE);
    }
    expectStat("buffers", 0);
    expectStat("handles", 0);
}

TEST_P(ProcessTest, aReceiverKilledWithOnewayCallsQueuedLeavesNothing) {
    PeerClient registry(path()), service(path());
    registry.publish();
    const uint32_t handle = giveNode(&service, &registry);
    for (int i = 0; i < 5; i++)
        registry.post(handle, 1, Payload().descriptor(STDERR_FILENO));
    expectStat("descriptors", 5);
    service.kill();
    (void)registry.expect(BR_DEAD_BINDER);
    awaitStat("descriptors", 0);
    awaitStat("buffers", 0);
}

TEST_P(ProcessTest, whatALeavingThreadHasNotReadIsToldToAnother) {
    PeerClient server(path()), client(path());
    std::optional<PeerClient> mortal(path());
    server.publish();
    const uint32_t given = client.takeNode(&server);
    (void)giveNode(&*mortal, &server);
    for (const bool death : {false, true}) {
        client.write(Commands().call(0, 1));
        PeerClient pool(&server);
        pool.write(Commands().looper());
        const Return call = pool.expect(BR_TRANSACTION);
        ASSERT_EQ(pool.exchange(Commands().freeBuffer(call).reply(), /*read=*/true), 0);
        (void)client.expectReply();
        if (death) {
            mortal.reset();
            awaitStat("processes", 2);
        } else {
            client.write(Commands().count(BC_RELEASE, given));
        }
        expectStat("queued", 0);  // the leaving thread has it
        pool.exitThread();
        expectStat("queued", death ? 1 : 2);
        if (death) {
            EXPECT_EQ(server.expect(BR_DEAD_BINDER).as<uint64_t>(), kCookie);
        } else {
            EXPECT_EQ(server.next().command, uint32_t{BR_RELEASE});
            EXPECT_EQ(server.next().command, uint32_t{BR_DECREFS});
        }
    }
}

TEST_P(ProcessTest, aSignalInterruptsAWaitAndNothingIsLost) {
    PeerClient server(path()), client(path());
    server.publish();
    ASSERT_EQ(server.run([](Driver&, int64_t) {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        return sigaction(SIGUSR1, &action, nullptr);
    }),
              0);
    server.beginRead();
    awaitStat("idle", 1);
    ASSERT_EQ(kill(server.pid(), SIGUSR1), 0);
    EXPECT_EQ(server.exchange({}, /*read=*/true), -EINTR);
    client.write(Commands().oneway(0, 3));
    EXPECT_EQ(server.expect(BR_TRANSACTION).data().code, 3u);
}

ON_EACH_DRIVER(ProcessTest);

}  // namespace
}  // namespace binderhost::tests
