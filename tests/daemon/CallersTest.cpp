// SPDX-License-Identifier: Apache-2.0
// Who may call, callers that die at any moment, and callers of a daemon that dies.
#include <binder/IBinder.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <random>

#include "Child.h"
#include "DaemonFixture.h"
#include "Requests.h"

namespace daemontest {
namespace {

using android::IBinder;

using binderhost::tests::Child;
using binderhost::tests::Commands;
using binderhost::tests::RawClient;
using binderhost::tests::require;

constexpr int kSecurity = -1;
constexpr uid_t kAudioServer = 1041;
constexpr uid_t kNobody = 65534;

class CallersTest : public DaemonFixture {
protected:
    static FocusRequest report(int pid, int state) {
        return FocusRequest().int32(pid).int32(state);
    }

    bool isFound() {
        try {
            (void)makeCaller();
            return true;
        } catch (const std::runtime_error&) {
            return false;
        }
    }

    /**
     * A process that goes through every method again and again until it is killed. It reports its
     * own state before that: the daemon insists that whoever does is alive.
     */
    void callForEver(int pid, const Child::Door& door) {
        FocusCaller caller(hubPath());
        require(caller.call(kSetAppState, report(getpid(), 0)) == Answer(), "the report");
        door.tell('r');
        for (;;) {
            for (const Request& request : everyRequest()) {
                // A display's grant would outlive its caller.
                if (request.code >= kGrantTrackingServiceAccess) continue;
                (void)caller.call(request.code, request.bytes);
            }
            (void)caller.call(kGetClientFocusStatus,
                              FocusRequest().int32(1).int32Vector(std::vector<int32_t>(500, pid)));
        }
    }
};

TEST_F(CallersTest, aReportThatCarriesNoCallerChangesNothing) {
    expectNoTrace([this] {
        const auto caller = makeCaller();
        for (const int pid : {getpid(), 0, -1, mHeadset->app(sim::kGame).pid()})
            for (const int state : {0, 2})
                caller->post(kSetAppState, report(pid, state));
    });
    // The same report of a caller that is known.
    const auto caller = makeCaller();
    const Answer before = caller->call(kGetForegroundApps);
    EXPECT_EQ(caller->call(kSetAppState, report(getpid(), 0)), Answer());
    EXPECT_NE(caller->call(kGetForegroundApps), before);
    EXPECT_EQ(caller->call(kSetAppState, report(getpid(), 2)), Answer());
    EXPECT_EQ(caller->call(kGetForegroundApps), before);
}

TEST_F(CallersTest, reportsForOthersAreRefused) {
    expectNoTrace([this] {
        const auto caller = makeCaller();
        for (const int pid : {0, -1, INT32_MIN, INT32_MAX, -getpid(), getppid(), daemonPid(),
                              mHeadset->app(sim::kGame).pid()})
            for (const int state : {0, 1, 2, -1})
                EXPECT_TRUE(isRefused(caller->call(kSetAppState, report(pid, state)), kSecurity))
                        << pid;
    });
}

TEST_F(CallersTest, withoutAPermissionControllerNobodyMayAndNothingOfThatIsRemembered) {
    run([this] {
        mHeadset->killService("permission");
        // One that has not asked about anybody yet.
        mHeadset->killDaemon();
        mHeadset->restartDaemon();
        const auto caller = makeCaller();
        for (const Request& request : everyRequest()) {
            if (request.code == kSetAppState) continue;
            EXPECT_TRUE(isRefused(caller->call(request.code, request.bytes), kSecurity))
                    << request.name;
        }
        EXPECT_EQ(caller->call(IBinder::DUMP_TRANSACTION,
                               FocusCaller::dumpRequest(STDOUT_FILENO, {})),
                  failed(android::PERMISSION_DENIED));
        mHeadset->restartService("permission");
        EXPECT_TRUE(isRefused(caller->call(kGetTopActivity), 0));
        EXPECT_NE(caller->dump({}), "");
    });
}

TEST_F(CallersTest, theAudioServerMayAllUnaskedAndOthersWithoutPermissionNothing) {
    using Uids = sim::Stack::Uids;
    sim::Stack& stack = mHeadset->stack();
    if (stack.uids() == Uids::Own) GTEST_SKIP() << "the kernel lets only root call under others";
    const auto callAs = [&](uid_t uid, int due) {
        Child child([&](Child::Door& door) {
            door.await('g');
            const bool takes = stack.uids() == Uids::Kernels;
            require(!takes || sim::takeIdentity(uid, /*keepsRoot=*/false), "the uid");
            FocusCaller caller(hubPath());
            for (const Request& request : everyRequest()) {
                if (request.code == kSetAppState) continue;
                const Answer answer = caller.call(request.code, request.bytes);
                require((answer.exception == kSecurity) == (due == kSecurity), request.name);
            }
            const Answer answer = caller.call(IBinder::DUMP_TRANSACTION,
                                              FocusCaller::dumpRequest(STDOUT_FILENO, {u"-A"}));
            require(answer.status == (due == 0 ? 0 : android::PERMISSION_DENIED), "dump");
        });
        if (stack.uids() == Uids::Hubs) {
            EXPECT_EQ(stack.vouch(child.pid(), uid), "");
        }
        child.tell('g');
        EXPECT_EQ(child.wait(), 0) << uid;
    };
    callAs(kAudioServer, 0);
    callAs(kNobody, kSecurity);
    run([this] { mHeadset->killService("permission"); });
    callAs(kAudioServer, 0);
}

TEST_F(CallersTest, callersKilledAtAnyMomentHarmNobody) {
    constexpr int kRounds = 200;
    std::mt19937 random{7};
    const int game = mHeadset->app(sim::kGame).pid();
    const auto killSome = [&](int rounds) {
        const auto other = makeCaller();
        for (int round = 0; round < rounds; ++round) {
            const auto body = [&](Child::Door& door) { callForEver(game, door); };
            Child one(body);
            Child two(body);
            one.await('r');
            two.await('r');
            // As long as some calls of another take, a different number each time.
            for (size_t calls = 1 + random() % 20; calls > 0; --calls)
                ASSERT_TRUE(other->isAnswered()) << round;
            one.killAndWait();
            ASSERT_TRUE(other->isAnswered()) << round;
            two.killAndWait();
        }
    };
    // The first ones have the record of each type made that stays, empty when they are forgotten.
    const Holdings before = settledHoldings();
    killSome(5);
    expectHoldings(before);
    EXPECT_THAT(makeCaller()->dump({u"-a"}), testing::HasSubstr("Type: 0 Num: 0"));
    expectNoTrace([&] { killSome(kRounds); });
}

TEST_F(CallersTest, aDaemonThatDiesIsDeadToItsCallersAndTheNextIsFound) {
    run([this] {
        const auto caller = makeCaller();
        const auto waiting = makeCaller();
        const int first = daemonPid();
        EXPECT_EQ(caller->servicePid(), first);
        RawClient& raw = caller->raw();
        raw.write(Commands().death(BC_REQUEST_DEATH_NOTIFICATION, caller->handle(), 0x77).looper());
        // One call is with a daemon that will never answer.
        ASSERT_EQ(kill(first, SIGSTOP), 0);
        waiting->begin(kGetTopActivity, FocusRequest().payload());
        mHeadset->killDaemon();
        EXPECT_EQ(waiting->finish(), failed(android::DEAD_OBJECT));
        EXPECT_EQ(waiting->call(kGetTopActivity), failed(android::DEAD_OBJECT));
        EXPECT_EQ(raw.expect(BR_DEAD_BINDER).as<uint64_t>(), 0x77u);
        // The service manager is told as well, not necessarily before this process.
        mHeadset->awaitTrue("nobody has the name", [this] { return !isFound(); });

        mHeadset->restartDaemon();
        EXPECT_NE(daemonPid(), first);
        EXPECT_EQ(makeCaller()->servicePid(), daemonPid());
        EXPECT_TRUE(makeCaller()->isAnswered());
        EXPECT_EQ(waiting->call(kGetTopActivity), failed(android::DEAD_OBJECT)) << "dead for good";
    });
}

}  // namespace
}  // namespace daemontest
