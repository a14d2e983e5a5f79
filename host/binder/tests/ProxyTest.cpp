// SPDX-License-Identifier: Apache-2.0
//
// Proxies, over a scripted driver: one per handle, and what death notices they pass on.
#include <future>
#include <utility>
#include <vector>

#include "ScriptedTest.h"

namespace {

using namespace android;
using namespace scripted;

struct Recipient : IBinder::DeathRecipient {
    int notices = 0;
    wp<IBinder> last;
    void binderDied(const wp<IBinder>& who) override {
        notices++;
        last = who;
    }
};

class ProxyTest : public ScriptedTest {
protected:
    const sp<Recipient> mRecipient = new Recipient();

    static uint64_t lastCookie() { return written(BC_REQUEST_DEATH_NOTIFICATION).back().value; }

    /** The notice of a request, as the driver sends it to a thread of the pool. */
    static void die(uint64_t cookie) {
        driver().pool(Reads().put(BR_DEAD_BINDER, binder_uintptr_t(cookie)));
        driver().pool(Reads().put(BR_CLEAR_DEATH_NOTIFICATION_DONE, binder_uintptr_t(cookie)));
        driver().pool(Reads().put(BR_FINISHED));
        runPoolThread();
    }
};

TEST_F(ProxyTest, OneProxyPerHandle) {
    const sp<IBinder> first = proxy(1);
    EXPECT_EQ(proxy(1), first);
    EXPECT_NE(proxy(2), first);
    EXPECT_EQ(first->remoteBinder()->handle(), 1);
    EXPECT_EQ(first->localBinder(), nullptr);
    EXPECT_EQ(written(BC_ACQUIRE).size(), 2u);
}

TEST_F(ProxyTest, HandleIsReleasedWithTheLastReference) {
    sp<IBinder> binder = proxy();
    wp<IBinder> weak = binder;
    EXPECT_EQ(driver().heldHandles(), 1);
    binder.clear();
    EXPECT_EQ(driver().heldHandles(), 0);
    EXPECT_EQ(weak.promote(), nullptr);
    binder = proxy();
    EXPECT_EQ(driver().heldHandles(), 1);
}

TEST_F(ProxyTest, ManyThreadsSeeOneProxy) {
    for (int round = 0; round < 200; round++) {
        std::vector<sp<IBinder>> seen(4);
        std::vector<std::thread> threads;
        for (auto& place : seen)
            threads.emplace_back([&place] { place = proxy(3); });
        for (std::thread& thread : threads)
            thread.join();
        for (const auto& binder : seen)
            EXPECT_EQ(binder, seen[0]);
    }
}

TEST_F(ProxyTest, LookupWhileTheLastProxyGoesWaitsForItAndMakesANewOne) {
    sp<IBinder> going = proxy();
    std::future<sp<IBinder>> looking;
    // The old one is in its destructor and still in the table.
    driver().whenWritten(BC_RELEASE, [&] {
        looking = std::async(std::launch::async, [] { return proxy(); });
        EXPECT_NE(looking.wait_for(std::chrono::milliseconds(100)), std::future_status::ready);
    });
    going.clear();
    const sp<IBinder> fresh = looking.get();
    EXPECT_EQ(proxy(), fresh);
    std::vector<uint32_t> counts = driver().writtenCommands();
    std::erase_if(counts, [](uint32_t each) { return each != BC_ACQUIRE && each != BC_RELEASE; });
    EXPECT_EQ(counts, (std::vector<uint32_t>{BC_ACQUIRE, BC_RELEASE, BC_ACQUIRE}));
}

TEST_F(ProxyTest, HandleGivenAnewAfterADeathIsALivingProxyThatNoLateNoticeReaches) {
    sp<IBinder> binder = proxy();
    ASSERT_EQ(binder->linkToDeath(mRecipient), OK);
    const uint64_t old = lastCookie();
    driver().caller(Reads().put(BR_DEAD_REPLY));
    ASSERT_EQ(binder->pingBinder(), DEAD_OBJECT);
    EXPECT_EQ(proxy(), binder) << "a handle that is still held names the dead object";
    binder.clear();
    binder = proxy();
    EXPECT_TRUE(binder->isBinderAlive());
    ASSERT_EQ(binder->linkToDeath(mRecipient), OK);
    const uint64_t current = lastCookie();
    EXPECT_NE(current, old);
    die(old);
    EXPECT_EQ(mRecipient->notices, 0);
    EXPECT_TRUE(binder->isBinderAlive());
    die(current);
    EXPECT_EQ(mRecipient->notices, 1);
}

TEST_F(ProxyTest, DescriptorIsAskedForOnce) {
    const sp<IBinder> binder = proxy();
    Parcel answer;
    answer.writeString16(String16("a.b.IC"));
    driver().caller(Reads().put(BR_REPLY, driver().payload(answer.data(), answer.dataSize())));
    EXPECT_EQ(binder->getInterfaceDescriptor(), String16("a.b.IC"));
    EXPECT_EQ(binder->getInterfaceDescriptor(), String16("a.b.IC"));
    EXPECT_EQ(written(BC_TRANSACTION).size(), 1u);
}

TEST_F(ProxyTest, ContextManagerThatIsNotThereIsNull) {
    driver().caller(Reads().put(BR_DEAD_REPLY));
    EXPECT_EQ(ProcessState::self()->getContextObject(nullptr), nullptr);
    driver().caller(Reads().put(BR_REPLY, number(0)));
    EXPECT_NE(ProcessState::self()->getContextObject(nullptr), nullptr);
}

TEST_F(ProxyTest, EveryLinkIsToldOnceAndThenForgotten) {
    const sp<IBinder> binder = proxy();
    const sp<Recipient> other = new Recipient();
    ASSERT_EQ(binder->linkToDeath(mRecipient), OK);
    ASSERT_EQ(binder->linkToDeath(mRecipient, this), OK);
    ASSERT_EQ(binder->linkToDeath(other), OK);
    EXPECT_EQ(written(BC_REQUEST_DEATH_NOTIFICATION).size(), 1u);
    const uint64_t cookie = lastCookie();
    die(cookie);
    EXPECT_EQ(mRecipient->notices, 2);
    EXPECT_EQ(other->notices, 1);
    EXPECT_EQ(other->last, binder);
    EXPECT_FALSE(binder->isBinderAlive());
    EXPECT_EQ(binder->linkToDeath(mRecipient), DEAD_OBJECT);
    EXPECT_EQ(binder->unlinkToDeath(mRecipient), DEAD_OBJECT);

    die(cookie);
    EXPECT_EQ(mRecipient->notices, 2);
    EXPECT_EQ(written(BC_DEAD_BINDER_DONE).size(), 2u);
}

TEST_F(ProxyTest, LinksAreFoundByRecipientCookieAndFlags) {
    const sp<IBinder> binder = proxy();
    int first = 0;
    int second = 0;
    const sp<Recipient> other = new Recipient();
    const struct {
        const char* name;
        wp<IBinder::DeathRecipient> recipient;
        void* cookie;
        uint32_t flags;
        status_t status;
    } rows[] = {
            {"other recipient", other, &first, 0, NAME_NOT_FOUND},
            {"other cookie", mRecipient, &second, 0, NAME_NOT_FOUND},
            {"no cookie", mRecipient, nullptr, 0, NAME_NOT_FOUND},
            {"other flags", mRecipient, &first, 1, NAME_NOT_FOUND},
            {"all the same", mRecipient, &first, 0, OK},
            {"once only", mRecipient, &first, 0, NAME_NOT_FOUND},
    };
    ASSERT_EQ(binder->linkToDeath(mRecipient, &first), OK);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(binder->unlinkToDeath(row.recipient, row.cookie, row.flags), row.status);
    }
    ASSERT_EQ(binder->linkToDeath(mRecipient, &first), OK);
    wp<IBinder::DeathRecipient> removed;
    EXPECT_EQ(binder->unlinkToDeath(nullptr, &first, 0, &removed), OK);
    EXPECT_EQ(removed, mRecipient);
}

TEST_F(ProxyTest, LastUnlinkWithdrawsTheRequest) {
    const sp<IBinder> binder = proxy();
    ASSERT_EQ(binder->linkToDeath(mRecipient), OK);
    ASSERT_EQ(binder->linkToDeath(mRecipient, this), OK);
    ASSERT_EQ(binder->unlinkToDeath(mRecipient), OK);
    EXPECT_EQ(driver().standingDeathRequests(), 1u);
    ASSERT_EQ(binder->unlinkToDeath(mRecipient, this), OK);
    EXPECT_EQ(driver().standingDeathRequests(), 0u);
    ASSERT_EQ(binder->linkToDeath(mRecipient), OK);
    const std::vector<Written> requests = written(BC_REQUEST_DEATH_NOTIFICATION);
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_NE(requests[0].value, requests[1].value);
}

TEST_F(ProxyTest, LinkOnlyWritesAndReadsNothing) {
    const sp<IBinder> binder = proxy();
    ASSERT_EQ(binder->linkToDeath(mRecipient), OK);
    ASSERT_EQ(binder->unlinkToDeath(mRecipient), OK);
    for (const Written& entry : driver().written())
        EXPECT_FALSE(entry.reads);
}

TEST_F(ProxyTest, NoticeThatCrossesTheUnlinkIsAcknowledgedAndToldToNobody) {
    const sp<IBinder> binder = proxy();
    ASSERT_EQ(binder->linkToDeath(mRecipient), OK);
    const uint64_t cookie = lastCookie();
    ASSERT_EQ(binder->unlinkToDeath(mRecipient), OK);
    die(cookie);
    EXPECT_EQ(mRecipient->notices, 0);
    EXPECT_EQ(written(BC_DEAD_BINDER_DONE).size(), 1u);
    EXPECT_FALSE(binder->isBinderAlive());
}

TEST_F(ProxyTest, ProxyThatGoesWithdrawsItsRequest) {
    sp<IBinder> binder = proxy();
    ASSERT_EQ(binder->linkToDeath(mRecipient), OK);
    const uint64_t cookie = lastCookie();
    binder.clear();
    EXPECT_EQ(driver().standingDeathRequests(), 0u);
    die(cookie);
    EXPECT_EQ(mRecipient->notices, 0);
}

TEST_F(ProxyTest, RecipientThatHasGoneIsPassedOver) {
    const sp<IBinder> binder = proxy();
    ASSERT_EQ(binder->linkToDeath(sp<Recipient>(new Recipient())), OK);
    ASSERT_EQ(binder->linkToDeath(mRecipient), OK);
    die(lastCookie());
    EXPECT_EQ(mRecipient->notices, 1);
}

TEST_F(ProxyTest, RecipientMayLetGoOfTheProxy) {
    struct Dropper : IBinder::DeathRecipient {
        sp<IBinder>* held = nullptr;
        void binderDied(const wp<IBinder>& /*who*/) override { held->clear(); }
    };
    sp<IBinder> binder = proxy();
    const sp<Dropper> dropper = new Dropper();
    dropper->held = &binder;
    ASSERT_EQ(binder->linkToDeath(dropper), OK);
    die(lastCookie());
    EXPECT_EQ(binder, nullptr);
}

TEST_F(ProxyTest, LocalObjectCannotBeLinked) {
    const sp<IBinder> local = new BBinder();
    EXPECT_EQ(local->linkToDeath(mRecipient), INVALID_OPERATION);
    EXPECT_EQ(local->unlinkToDeath(mRecipient), INVALID_OPERATION);
    EXPECT_TRUE(local->isBinderAlive());
}

TEST_F(ProxyTest, AttachedObjectIsCleanedUpWithTheBinder) {
    const auto count = [](const void*, void* object, void*) { ++*static_cast<int*>(object); };
    int cleaned = 0;
    int detached = 0;
    for (sp<IBinder> binder : {proxy(), sp<IBinder>(new BBinder())}) {
        binder->attachObject(this, &cleaned, nullptr, count);
        binder->attachObject(&count, &detached, nullptr, count);
        EXPECT_EQ(binder->findObject(this), &cleaned);
        binder->detachObject(&count);
        EXPECT_EQ(binder->findObject(&count), nullptr);
    }
    EXPECT_EQ(cleaned, 2);
    EXPECT_EQ(detached, 0);
}

}  // namespace
