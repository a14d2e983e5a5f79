// SPDX-License-Identifier: Apache-2.0
//
// Serving calls, over a scripted driver: what is sent back, when, and what runs in between.
#include <unistd.h>

#include "ScriptedTest.h"

namespace {

using namespace android;
using namespace scripted;

class ServeTest : public ScriptedTest {
protected:
    static sp<BBinder> answering(status_t result, int32_t value = 0) {
        return new Target([=](uint32_t, const Parcel&, Parcel* reply, uint32_t) {
            reply->writeInt32(value);
            return result;
        });
    }

    /** Has one call served, and gives the one answer to it. */
    static Written serve(const binder_transaction_data& transaction) {
        driver().pool(Reads().put(BR_TRANSACTION, transaction));
        driver().pool(Reads().put(BR_TRANSACTION_COMPLETE));
        finish();
        return onlyReply();
    }
    static Written onlyReply() {
        const std::vector<Written> replies = written(BC_REPLY);
        EXPECT_EQ(replies.size(), 1u);
        return replies.empty() ? Written() : replies[0];
    }

    static void finish() {
        driver().pool(Reads().put(BR_FINISHED));
        runPoolThread();
    }
};

TEST_F(ServeTest, AnswerAndTheNextReadAreOneExchange) {
    const sp<BBinder> target = answering(OK, 3);
    const Written answer = serve(request(target, 1));
    EXPECT_TRUE(answer.reads);
    EXPECT_EQ(answer.transaction.data_size, 4u);
    const std::vector<Written> freed = written(BC_FREE_BUFFER);
    ASSERT_EQ(freed.size(), 1u);
    EXPECT_EQ(freed[0].exchange, answer.exchange);
}

TEST_F(ServeTest, ResultsAreSentAsTheyAre) {
    const struct {
        const char* name;
        status_t result;
        bool asStatus;
    } rows[] = {
            {"fine", OK, false},
            {"positive is fine", 1, false},
            {"unknown code", UNKNOWN_TRANSACTION, true},
            {"wrong descriptor", BAD_TYPE, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        driver().reset();
        const sp<BBinder> target = answering(row.result, 77);
        const Written answer = serve(request(target, 1));
        EXPECT_EQ((answer.transaction.flags & TF_STATUS_CODE) != 0, row.asStatus);
        int32_t sent = 0;
        ASSERT_EQ(answer.payload.size(), sizeof(sent));
        std::memcpy(&sent, answer.payload.data(), sizeof(sent));
        EXPECT_EQ(sent, row.asStatus ? row.result : 77);
    }
}

TEST_F(ServeTest, AnAnswerHoldsNothingOfTheOneBefore) {
    int calls = 0;
    const sp<BBinder> target =
            new Target([&calls](uint32_t, const Parcel&, Parcel* reply, uint32_t) {
                EXPECT_EQ(reply->dataSize(), 0u);
                EXPECT_EQ(reply->dataPosition(), 0u);
                EXPECT_EQ(reply->errorCheck(), OK);
                EXPECT_TRUE(reply->allowFds());
                if (++calls > 2) return status_t(OK);
                reply->pushAllowFds(false);
                reply->writeInt64(-1);
                reply->setError(NO_MEMORY);
                return status_t(OK);
            });
    // The second of them is one-way: nobody takes what it leaves.
    driver().pool(Reads().put(BR_TRANSACTION, request(target, 1)));
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE)
                          .put(BR_TRANSACTION, request(target, 1, TF_ONE_WAY)));
    driver().pool(Reads().put(BR_TRANSACTION, request(target, 1)));
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE));
    finish();
    EXPECT_EQ(calls, 3);
    const std::vector<Written> answers = written(BC_REPLY);
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(answers[0].payload.size(), sizeof(int32_t));
    EXPECT_TRUE(answers[1].payload.empty());
}

TEST_F(ServeTest, OneWayCallIsNotAnsweredAndHasNoCaller) {
    pid_t pid = -1;
    const sp<BBinder> target = new Target([&pid](uint32_t, const Parcel&, Parcel*, uint32_t flags) {
        pid = IPCThreadState::self()->getCallingPid();
        EXPECT_NE(flags & IBinder::FLAG_ONEWAY, 0u);
        return status_t(BAD_VALUE);
    });
    binder_transaction_data transaction = request(target, 1, TF_ONE_WAY);
    transaction.sender_pid = 0;
    driver().pool(Reads().put(BR_TRANSACTION, transaction));
    finish();
    EXPECT_EQ(pid, 0);
    EXPECT_TRUE(written(BC_REPLY).empty());
    EXPECT_EQ(written(BC_FREE_BUFFER).size(), 1u);
}

TEST_F(ServeTest, IdentityIsTheCallersUntilItIsCleared) {
    const sp<BBinder> target = new Target([](uint32_t, const Parcel&, Parcel*, uint32_t) {
        IPCThreadState* thread = IPCThreadState::self();
        EXPECT_EQ(thread->getCallingPid(), 1234);
        const int64_t token = thread->clearCallingIdentity();
        EXPECT_EQ(thread->getCallingPid(), getpid());
        EXPECT_EQ(thread->getCallingUid(), getuid());
        thread->restoreCallingIdentity(token);
        EXPECT_EQ(thread->getCallingPid(), 1234);
        EXPECT_EQ(thread->getCallingUid(), 5678u);
        static_cast<void>(thread->clearCallingIdentity());
        return status_t(OK);
    });
    driver().pool(Reads().put(BR_TRANSACTION, request(target, 1)));
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE).put(BR_TRANSACTION, request(target, 1)));
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE));
    finish();
    EXPECT_EQ(written(BC_REPLY).size(), 2u);
}

TEST_F(ServeTest, CallersSecurityContextIsKnownWhereTheKernelTellsItAndWhileTheCallLasts) {
    const auto sid = [] {
        const char* known = IPCThreadState::self()->getCallingSid();
        return std::string(known == nullptr ? "none" : known);
    };
    std::vector<std::string> seen;
    const sp<BBinder> target = new Target([&](uint32_t code, const Parcel&, Parcel*, uint32_t) {
        seen.push_back(sid());
        if (code == 2) {
            IPCThreadState* thread = IPCThreadState::self();
            thread->restoreCallingIdentity(thread->clearCallingIdentity());
            seen.push_back(sid());
        }
        return status_t(OK);
    });
    binder_transaction_data_secctx inContext{};
    inContext.transaction_data = request(target, 1);
    inContext.secctx = reinterpret_cast<uintptr_t>("u:r:app:s0");
    binder_transaction_data_secctx cleared = inContext;
    cleared.transaction_data = request(target, 2);
    driver().pool(Reads().put(BR_TRANSACTION_SEC_CTX, inContext));
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE).put(BR_TRANSACTION, request(target, 1)));
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE).put(BR_TRANSACTION_SEC_CTX, cleared));
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE));
    finish();
    EXPECT_EQ(seen, (std::vector<std::string>{"u:r:app:s0", "none", "u:r:app:s0", "none"}));
    EXPECT_EQ(sid(), "none");
}

TEST_F(ServeTest, NestedCallLeavesTheOuterCallersSecurityContext) {
    std::vector<std::string> seen;
    const auto note = [&] {
        const char* known = IPCThreadState::self()->getCallingSid();
        seen.push_back(known == nullptr ? "none" : known);
    };
    const sp<IBinder> other = proxy();
    const sp<BBinder> inner = new Target([&](uint32_t, const Parcel&, Parcel*, uint32_t) {
        note();
        return status_t(OK);
    });
    const sp<BBinder> outer = new Target([&](uint32_t, const Parcel&, Parcel*, uint32_t) {
        note();
        Parcel data;
        Parcel reply;
        const status_t status = other->transact(1, data, &reply);
        note();
        return status;
    });
    binder_transaction_data_secctx inContext{};
    inContext.transaction_data = request(outer, 1);
    inContext.secctx = reinterpret_cast<uintptr_t>("u:r:outer:s0");
    driver().pool(Reads().put(BR_TRANSACTION_SEC_CTX, inContext));
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE).put(BR_TRANSACTION, request(inner, 1)));
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE).put(BR_REPLY, number(0)));
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE));
    finish();
    EXPECT_EQ(seen, (std::vector<std::string>{"u:r:outer:s0", "none", "u:r:outer:s0"}));
}

TEST_F(ServeTest, IdentityTokenKeepsAnyPidAndUid) {
    const struct {
        pid_t pid;
        uid_t uid;
    } rows[] = {{0, 0}, {1, 0xffffffffu}, {-1, 1000}, {0x7fffffff, 0x80000000u}};
    IPCThreadState* thread = IPCThreadState::self();
    const int64_t mine = thread->clearCallingIdentity();
    for (const auto& row : rows) {
        thread->restoreCallingIdentity((int64_t(row.uid) << 32) | uint32_t(row.pid));
        const int64_t token = thread->clearCallingIdentity();
        thread->restoreCallingIdentity(token);
        EXPECT_EQ(thread->getCallingPid(), row.pid);
        EXPECT_EQ(thread->getCallingUid(), row.uid);
    }
    thread->restoreCallingIdentity(mine);
}

TEST_F(ServeTest, DestructorBehindACallRunsAfterTheAnswerHasLeft) {
    // The object's last reference comes back in the same batch as the call.
    bool answered = false;
    sp<BBinder> dying = new Target(nullptr, [&] { answered = !written(BC_REPLY).empty(); });
    const binder_ptr_cookie last = node(dying);
    const sp<BBinder> target = answering(OK);
    driver().pool(Reads().put(BR_INCREFS, last).put(BR_ACQUIRE, last));
    driver().poolLater([&] {
        dying.clear();
        return Step{Reads().put(BR_TRANSACTION, request(target, 1))
                            .put(BR_RELEASE, last)
                            .put(BR_DECREFS, last),
                    0, SIZE_MAX};
    });
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE));
    finish();
    EXPECT_TRUE(answered);
    EXPECT_FALSE(onlyReply().reads);
}

TEST_F(ServeTest, OneWayCallMadeBehindAnAnswerEndsWithItsOwnCompletion) {
    const sp<IBinder> other = proxy();
    status_t ended = OK;
    sp<BBinder> dying = new Target(nullptr, [&] {
        Parcel data;
        ended = other->transact(1, data, nullptr, IBinder::FLAG_ONEWAY);
    });
    const binder_ptr_cookie last = node(dying);
    const sp<BBinder> target = answering(OK);
    driver().pool(Reads().put(BR_INCREFS, last).put(BR_ACQUIRE, last));
    driver().poolLater([&] {
        dying.clear();
        return Step{Reads().put(BR_RELEASE, last)
                            .put(BR_DECREFS, last)
                            .put(BR_TRANSACTION, request(target, 1)),
                    0, SIZE_MAX};
    });
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE));  // of the answer
    driver().pool(Reads().put(BR_FAILED_REPLY));          // of the one-way call
    finish();
    EXPECT_EQ(ended, FAILED_TRANSACTION);
}

TEST_F(ServeTest, AnswerThatHoldsABinderIsSentAloneAndReleasedWhenItIsDone) {
    bool gone = false;
    binder_ptr_cookie given{};
    const sp<BBinder> target = new Target([&](uint32_t, const Parcel&, Parcel* reply, uint32_t) {
        const sp<BBinder> made = new Target(nullptr, [&gone] { gone = true; });
        given = node(made);
        return reply->writeStrongBinder(made);
    });
    driver().pool(Reads().put(BR_TRANSACTION, request(target, 1)));
    driver().poolLater([&] {
        EXPECT_FALSE(gone);
        return Step{Reads().put(BR_INCREFS, given).put(BR_ACQUIRE, given), 0, SIZE_MAX};
    });
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE));
    driver().poolLater([&] {
        EXPECT_FALSE(gone);
        return Step{Reads().put(BR_RELEASE, given).put(BR_DECREFS, given), 0, SIZE_MAX};
    });
    finish();
    EXPECT_FALSE(onlyReply().reads);
    EXPECT_EQ(written(BC_ACQUIRE_DONE).size(), 1u);
    EXPECT_TRUE(gone);
}

TEST_F(ServeTest, ReferencesThatComeBackWithTheLastCommandsAreLetGo) {
    bool gone = false;
    sp<BBinder> object = new Target(nullptr, [&gone] { gone = true; });
    const binder_ptr_cookie pinned = node(object);
    driver().pool(Reads().put(BR_INCREFS, pinned).put(BR_ACQUIRE, pinned));
    driver().poolLater([&] {
        object.clear();
        EXPECT_FALSE(gone);
        return Step{Reads().put(BR_RELEASE, pinned).put(BR_DECREFS, pinned).put(BR_FINISHED), 0,
                    SIZE_MAX};
    });
    runPoolThread();
    EXPECT_TRUE(gone);
}

TEST_F(ServeTest, DeathBeforeTheReplyIsToldWhenThePoolThreadIsBackAtItsHead) {
    struct Recipient : IBinder::DeathRecipient {
        bool told = false;
        void binderDied(const wp<IBinder>& /*who*/) override { told = true; }
    };
    const sp<Recipient> recipient = new Recipient();
    const sp<IBinder> other = proxy();
    ASSERT_EQ(other->linkToDeath(recipient), OK);
    const uint64_t cookie = written(BC_REQUEST_DEATH_NOTIFICATION)[0].value;
    bool toldInTheCall = true;
    const sp<BBinder> target = new Target([&](uint32_t, const Parcel&, Parcel*, uint32_t) {
        Parcel data;
        Parcel reply;
        EXPECT_EQ(other->transact(1, data, &reply), OK);
        EXPECT_EQ(reply.readInt32(), 8) << "the last reply is not lost to the death";
        toldInTheCall = recipient->told;
        return status_t(OK);
    });
    driver().pool(Reads().put(BR_TRANSACTION, request(target, 1)));
    driver().pool(
            Reads().put(BR_TRANSACTION_COMPLETE).put(BR_DEAD_BINDER, binder_uintptr_t(cookie)));
    driver().pool(Reads().put(BR_REPLY, number(8)));
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE));
    driver().pool(Reads().put(BR_CLEAR_DEATH_NOTIFICATION_DONE, binder_uintptr_t(cookie)));
    finish();
    EXPECT_FALSE(toldInTheCall);
    EXPECT_TRUE(recipient->told);
    EXPECT_EQ(written(BC_DEAD_BINDER_DONE).size(), 1u);
}

TEST_F(ServeTest, ObjectThatIsGoneIsAnUnknownTransaction) {
    sp<BBinder> target = answering(OK);
    binder_transaction_data transaction = request(target, 1);
    RefBase::weakref_type* refs = target->createWeak(this);
    target.clear();
    EXPECT_NE(serve(transaction).transaction.flags & TF_STATUS_CODE, 0u);
    refs->decWeak(this);
}

TEST_F(ServeTest, HandleZeroReachesTheContextObject) {
    IPCThreadState::self()->setTheContextObject(answering(OK, 11));
    binder_transaction_data transaction = driver().payload("", 0);
    transaction.code = 1;
    EXPECT_EQ(serve(transaction).payload, (std::vector<uint8_t>{11, 0, 0, 0}));
    IPCThreadState::self()->setTheContextObject(nullptr);
}

TEST_F(ServeTest, CommandThatIsNotKnownIsSkippedWithItsArgument) {
    const sp<BBinder> target = answering(OK);
    driver().pool(Reads().put(_IOR('r', 99, binder_ptr_cookie), binder_ptr_cookie{})
                          .put(BR_TRANSACTION, request(target, 1)));
    driver().pool(Reads().put(BR_TRANSACTION_COMPLETE));
    finish();
    EXPECT_EQ(written(BC_REPLY).size(), 1u);
}

TEST_F(ServeTest, EveryBinderAnswersTheMetaTransactions) {
    const sp<BBinder> target = new BBinder();
    const struct {
        const char* name;
        uint32_t code;
        status_t status;
        size_t replySize;
    } rows[] = {
            {"ping", IBinder::PING_TRANSACTION, OK, 0},
            {"interface", IBinder::INTERFACE_TRANSACTION, OK, 8},
            {"pid", IBinder::DEBUG_PID_TRANSACTION, OK, 4},
            {"extension", IBinder::EXTENSION_TRANSACTION, OK, 28},
            {"system properties", IBinder::SYSPROPS_TRANSACTION, OK, 0},
            {"dump without a descriptor", IBinder::DUMP_TRANSACTION, BAD_TYPE, 0},
            {"shell without a descriptor", IBinder::SHELL_COMMAND_TRANSACTION, BAD_TYPE, 0},
            {"unknown", IBinder::FIRST_CALL_TRANSACTION, UNKNOWN_TRANSACTION, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Parcel data;
        Parcel reply;
        EXPECT_EQ(target->transact(row.code, data, &reply), row.status);
        EXPECT_EQ(reply.dataSize(), row.replySize);
    }
}

}  // namespace
