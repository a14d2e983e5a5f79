// SPDX-License-Identifier: Apache-2.0
//
// Calls out, over a scripted driver: how they end, and what may and may not happen meanwhile.
#include <unistd.h>

#include "ScriptedTest.h"

namespace {

using namespace android;
using namespace scripted;

class CallTest : public ScriptedTest {
protected:
    /** An empty call, without looking at what it brings. */
    static status_t call(const sp<IBinder>& binder, uint32_t flags = 0) {
        Parcel data;
        Parcel reply;
        return binder->transact(1, data, &reply, flags);
    }
};

TEST_F(CallTest, ReplyBringsItsData) {
    driver().caller(Reads().put(BR_NOOP).put(BR_TRANSACTION_COMPLETE));
    driver().caller(Reads().put(BR_REPLY, number(42)));
    Parcel data;
    Parcel reply;
    EXPECT_EQ(proxy()->transact(1, data, &reply), OK);
    EXPECT_EQ(reply.readInt32(), 42);
}

TEST_F(CallTest, EveryWayToFailHasItsStatus) {
    const struct {
        const char* name;
        Reads reads;
        status_t status;
    } rows[] = {
            {"dead", Reads().put(BR_DEAD_REPLY), DEAD_OBJECT},
            {"failed", Reads().put(BR_FAILED_REPLY), FAILED_TRANSACTION},
            {"frozen", Reads().put(BR_FROZEN_REPLY), FAILED_TRANSACTION},
            {"dead after delivery", Reads().put(BR_TRANSACTION_COMPLETE).put(BR_DEAD_REPLY),
             DEAD_OBJECT},
            {"error", Reads().put(BR_ERROR, int32_t{-5}), -5},
            {"refused", Reads().put(BR_REPLY, status(BAD_TYPE)), BAD_TYPE},
            {"unknown code", Reads().put(BR_REPLY, status(-74)), UNKNOWN_TRANSACTION},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        driver().caller(row.reads);
        Parcel data;
        Parcel reply;
        EXPECT_EQ(proxy()->transact(1, data, &reply), row.status);
        EXPECT_EQ(reply.dataSize(), 0u);
    }
}

TEST_F(CallTest, DeadProxyIsNotAskedAgain) {
    const sp<IBinder> binder = proxy();
    driver().caller(Reads().put(BR_DEAD_REPLY));
    EXPECT_EQ(call(binder), DEAD_OBJECT);
    EXPECT_FALSE(binder->isBinderAlive());
    EXPECT_EQ(call(binder), DEAD_OBJECT);
    EXPECT_EQ(written(BC_TRANSACTION).size(), 1u);
}

TEST_F(CallTest, ParcelWithAnErrorIsNotSent) {
    Parcel data;
    data.setError(BAD_VALUE);
    EXPECT_EQ(proxy()->transact(1, data, nullptr), BAD_VALUE);
    EXPECT_TRUE(written(BC_TRANSACTION).empty());
}

TEST_F(CallTest, OneWayCallEndsWithItsDelivery) {
    const struct {
        uint32_t end;
        status_t status;
    } rows[] = {{BR_TRANSACTION_COMPLETE, OK},
                {BR_ONEWAY_SPAM_SUSPECT, OK},
                {BR_FAILED_REPLY, FAILED_TRANSACTION}};
    for (const auto& row : rows) {
        driver().caller(Reads().put(row.end));
        EXPECT_EQ(call(proxy(), IBinder::FLAG_ONEWAY), row.status) << row.end;
    }
    const std::vector<Written> calls = written(BC_TRANSACTION);
    ASSERT_EQ(calls.size(), std::size(rows));
    EXPECT_NE(calls[0].transaction.flags & TF_ONE_WAY, 0u);
}

TEST_F(CallTest, InterruptedExchangeIsGoneOnWithAndSendsNothingTwice) {
    // How much of the commands the driver has taken when the signal comes.
    const sp<IBinder> binder = proxy();
    size_t sent = 0;
    for (const size_t taken : {SIZE_MAX, size_t{0}}) {
        driver().addCaller({Reads(), -EINTR, taken});
        driver().addCaller({Reads(), -EINTR, taken});
        driver().caller(Reads().put(BR_TRANSACTION_COMPLETE).put(BR_REPLY, number(1)));
        EXPECT_EQ(call(binder), OK);
        EXPECT_EQ(written(BC_TRANSACTION).size(), ++sent);
    }
}

TEST_F(CallTest, ObjectSentOutIsAcknowledgedAndOutlivesItsCreator) {
    bool gone = false;
    sp<BBinder> object = new Target(nullptr, [&gone] { gone = true; });
    const binder_ptr_cookie pinned = node(object);
    driver().caller(
            Reads().put(BR_INCREFS, pinned).put(BR_ACQUIRE, pinned).put(BR_TRANSACTION_COMPLETE));
    driver().caller(Reads().put(BR_REPLY, number(0)));
    {
        Parcel data;
        data.writeStrongBinder(object);
        EXPECT_EQ(proxy()->transact(1, data, nullptr), OK);
    }
    // The acknowledgement left with the read that brought the reply.
    ASSERT_EQ(written(BC_ACQUIRE_DONE).size(), 1u);
    EXPECT_EQ(written(BC_ACQUIRE_DONE)[0].value, pinned.cookie);
    EXPECT_EQ(written(BC_INCREFS_DONE).size(), 1u);
    object.clear();
    EXPECT_FALSE(gone);

    driver().pool(Reads().put(BR_RELEASE, pinned).put(BR_DECREFS, pinned));
    driver().pool(Reads().put(BR_FINISHED));
    runPoolThread();
    EXPECT_TRUE(gone);
}

TEST_F(CallTest, AcknowledgementOfAOneWayCallIsNotKeptBack) {
    const sp<BBinder> object = new Target(nullptr);
    driver().caller(Reads().put(BR_INCREFS, node(object))
                            .put(BR_ACQUIRE, node(object))
                            .put(BR_TRANSACTION_COMPLETE));
    Parcel data;
    data.writeStrongBinder(object);
    const sp<IBinder> binder = proxy();
    EXPECT_EQ(binder->transact(1, data, nullptr, IBinder::FLAG_ONEWAY), OK);
    EXPECT_EQ(written(BC_ACQUIRE_DONE).size(), 1u);
    driver().pool(Reads().put(BR_RELEASE, node(object)).put(BR_DECREFS, node(object)));
    driver().pool(Reads().put(BR_FINISHED));
    runPoolThread();
}

TEST_F(CallTest, NestedCallRunsOnTheWaitingThreadAsItsCaller) {
    std::thread::id servedBy;
    pid_t pid = -1;
    uid_t uid = 0;
    const sp<BBinder> target = new Target([&](uint32_t, const Parcel&, Parcel* reply, uint32_t) {
        servedBy = std::this_thread::get_id();
        pid = IPCThreadState::self()->getCallingPid();
        uid = IPCThreadState::self()->getCallingUid();
        return reply->writeInt32(9);
    });
    driver().caller(Reads().put(BR_TRANSACTION_COMPLETE).put(BR_TRANSACTION, request(target, 3)));
    // The completion is that of the answer, not of the call that still waits.
    driver().caller(Reads().put(BR_TRANSACTION_COMPLETE));
    driver().caller(Reads().put(BR_REPLY, number(5)));
    Parcel data;
    Parcel reply;
    EXPECT_EQ(proxy()->transact(1, data, &reply), OK);
    EXPECT_EQ(reply.readInt32(), 5);
    EXPECT_EQ(servedBy, std::this_thread::get_id());
    EXPECT_EQ(pid, 1234);
    EXPECT_EQ(uid, 5678u);
    EXPECT_EQ(IPCThreadState::self()->getCallingPid(), getpid());
    EXPECT_EQ(IPCThreadState::self()->getCallingUid(), getuid());
}

TEST_F(CallTest, AnswerToANestedCallIsNotTheCompletionOfAOneWayCallMadeInIt) {
    const sp<IBinder> other = proxy(8);
    const sp<BBinder> target = new Target([&](uint32_t, const Parcel&, Parcel*, uint32_t) {
        Parcel data;
        return other->transact(2, data, nullptr, IBinder::FLAG_ONEWAY);
    });
    driver().caller(Reads().put(BR_TRANSACTION_COMPLETE).put(BR_TRANSACTION, request(target, 3)));
    driver().caller(Reads().put(BR_TRANSACTION_COMPLETE));  // of the one-way call
    driver().caller(Reads().put(BR_TRANSACTION_COMPLETE));  // of the answer
    driver().caller(Reads().put(BR_REPLY, number(5)));
    EXPECT_EQ(call(proxy()), OK);
    EXPECT_EQ(written(BC_REPLY).size(), 1u);
}

TEST_F(CallTest, WaitingThreadOutsideThePoolRunsNoDeathRecipient) {
    struct Recipient : IBinder::DeathRecipient {
        std::thread::id toldBy;
        void binderDied(const wp<IBinder>& /*who*/) override {
            toldBy = std::this_thread::get_id();
        }
    };
    const sp<Recipient> recipient = new Recipient();
    const sp<IBinder> binder = proxy();
    ASSERT_EQ(binder->linkToDeath(recipient), OK);
    const uint64_t cookie = written(BC_REQUEST_DEATH_NOTIFICATION)[0].value;
    driver().caller(Reads().put(BR_DEAD_BINDER, binder_uintptr_t(cookie)));
    driver().caller(Reads().put(BR_DEAD_REPLY));
    EXPECT_EQ(call(binder), DEAD_OBJECT);
    EXPECT_EQ(recipient->toldBy, std::thread::id());

    driver().pool(Reads().put(BR_FINISHED));
    runPoolThread();
    EXPECT_NE(recipient->toldBy, std::thread::id());
    EXPECT_NE(recipient->toldBy, std::this_thread::get_id());
    EXPECT_EQ(written(BC_DEAD_BINDER_DONE).size(), 1u);
}

TEST_F(CallTest, ObjectsThatThisRuntimeDoesNotKnowAreNeitherReadNorPassedOn) {
    // Known to the driver by a weak reference only: nobody may take a strong one.
    bool gone = false;
    sp<BBinder> object = new Target(nullptr, [&gone] { gone = true; });
    RefBase::weakref_type* refs = object->createWeak(this);
    flat_binder_object flat{};
    flat.binder = node(object).ptr;
    flat.cookie = node(object).cookie;
    object.clear();
    ASSERT_TRUE(gone);
    for (const uint32_t type :
         {uint32_t{BINDER_TYPE_WEAK_BINDER}, uint32_t{BINDER_TYPE_WEAK_HANDLE},
          uint32_t{BINDER_TYPE_PTR}, uint32_t{BINDER_TYPE_FDA}, 0u}) {
        SCOPED_TRACE(type);
        flat.hdr.type = type;
        driver().caller(Reads().put(BR_REPLY, driver().payload(&flat, sizeof(flat), {0})));
        Parcel data;
        Parcel reply;
        ASSERT_EQ(proxy()->transact(1, data, &reply), OK);
        EXPECT_EQ(reply.readStrongBinder(), nullptr);
        EXPECT_EQ(reply.readFileDescriptor(), BAD_TYPE);
        Parcel other;
        EXPECT_EQ(other.appendFrom(&reply, 0, reply.dataSize()), BAD_TYPE);
        EXPECT_EQ(other.errorCheck(), BAD_TYPE);
        EXPECT_EQ(other.objectsCount(), 0u);
    }
    refs->decWeak(this);
}

TEST_F(CallTest, SmallBufferGoesBackWithTheNextCommand) {
    const sp<IBinder> binder = proxy();
    driver().caller(Reads().put(BR_REPLY, number(1)));
    ASSERT_EQ(call(binder), OK);
    EXPECT_EQ(driver().liveBuffers(), 1u);
    driver().caller(Reads().put(BR_REPLY, number(2)));
    ASSERT_EQ(call(binder), OK);
    const std::vector<Written> freed = written(BC_FREE_BUFFER);
    ASSERT_EQ(freed.size(), 1u);
    EXPECT_EQ(freed[0].exchange, written(BC_TRANSACTION)[1].exchange);
}

TEST_F(CallTest, LargeBufferGoesBackAtOnce) {
    const std::vector<uint8_t> large(5000);
    driver().caller(Reads().put(BR_REPLY, driver().payload(large.data(), large.size())));
    ASSERT_EQ(call(proxy()), OK);
    EXPECT_EQ(driver().liveBuffers(), 0u);
}

TEST_F(CallTest, BufferKeptByAThreadThatEndsGoesBack) {
    std::thread([] {
        driver().caller(Reads().put(BR_REPLY, number(1)));
        EXPECT_EQ(call(proxy()), OK);
    }).join();
    EXPECT_EQ(driver().liveBuffers(), 0u);
}

TEST_F(CallTest, ProxyThatGoesAfterItsThreadsConversationIsStillReleased) {
    struct Late {
        sp<IBinder> held;
        ~Late() {
            Parcel data;
            EXPECT_EQ(held->transact(1, data, nullptr), DEAD_OBJECT);
        }
    };
    std::thread([] {
        static thread_local Late late;
        late.held = proxy();
    }).join();
    EXPECT_EQ(driver().heldHandles(), 1);
    driver().pool(Reads().put(BR_NOOP));
    driver().pool(Reads().put(BR_FINISHED));
    runPoolThread();
    EXPECT_EQ(driver().heldHandles(), 0);
}

TEST(DriverGoneTest, OutgoingCallsFindADeadObject) {
    EXPECT_EXIT(
            {
                driver().goAway();
                Parcel data;
                const status_t status =
                        IPCThreadState::self()->transact(7, 1, data, nullptr, /*flags=*/0);
                std::exit(status == DEAD_OBJECT ? 0 : 2);
            },
            testing::ExitedWithCode(0), "");
}

TEST(DriverGoneTest, ThreadOfThePoolEndsTheProcess) {
    EXPECT_EXIT(
            {
                driver().goAway();
                IPCThreadState::self()->joinThreadPool();
            },
            testing::ExitedWithCode(1), "the hub has gone: a script");
}

}  // namespace
