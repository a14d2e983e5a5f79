// SPDX-License-Identifier: Apache-2.0
//
// The runtime between real processes, over the embedded driver or a kernel's device.
#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <binder/BpBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/android/binder.h>
#include <log/log.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "HostilePeer.h"
#include "PeerProcess.h"
#include "TestDevice.h"

namespace peers {

Hub* gHub = nullptr;
android::sp<Registry> gRegistry;

}  // namespace peers

namespace {

using namespace android;
using namespace peers;
using namespace std::chrono_literals;
using binderhost::tests::onDevice;

constexpr auto kDeadline = 30s;

class Local : public BBinder {
public:
    using Answer = std::function<status_t(uint32_t, const Parcel&, Parcel*)>;
    explicit Local(Answer answer) : mAnswer(std::move(answer)) {}

protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                        uint32_t /*flags*/) override {
        return mAnswer(code, data, reply);
    }

private:
    const Answer mAnswer;
};

struct Recipient : IBinder::DeathRecipient {
    std::atomic<int>* notices = nullptr;
    explicit Recipient(std::atomic<int>* counter) : notices(counter) {}
    void binderDied(const wp<IBinder>& /*who*/) override { ++*notices; }
};

template <typename Condition>
bool eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

/** Peers by name, and at the end the assertion that the hub holds nothing of them. */
class ProcessTest : public testing::Test {
protected:
    void TearDown() override {
        for (const auto& [name, peer] : mPeers)
            gRegistry->forget(name);
        mPeers.clear();
        IPCThreadState::self()->flushCommands();
        EXPECT_TRUE(gHub->awaitStat("processes", 1));
        EXPECT_TRUE(gHub->awaitStat("handles", 0)) << gHub->stat("handles");
        EXPECT_TRUE(gHub->awaitStat("death_links", 0));
        EXPECT_TRUE(gHub->awaitStat("nodes", 1)) << gHub->stat("nodes");
    }

    sp<IBinder> peer(const std::string& name) {
        mPeers[name] = std::make_unique<Peer>(*gHub, name);
        sp<IBinder> binder = gRegistry->await(name);
        EXPECT_NE(binder, nullptr) << name << " did not start: " << mPeers[name]->errors();
        return binder;
    }
    Peer& process(const std::string& name) { return *mPeers.at(name); }

    static status_t keep(const sp<IBinder>& peer, const sp<IBinder>& binder) {
        Parcel data;
        Parcel reply;
        data.writeStrongBinder(binder);
        return peer->transact(kKeep, data, &reply);
    }
    static sp<IBinder> give(const sp<IBinder>& peer) {
        Parcel reply;
        EXPECT_EQ(ask(peer, kGive, &reply), OK);
        return reply.readStrongBinder();
    }
    static status_t callBack(const sp<IBinder>& peer, const sp<IBinder>& target, uint32_t code,
                             Parcel* reply) {
        Parcel data;
        data.writeStrongBinder(target);
        data.writeUint32(code);
        return peer->transact(kCallBack, data, reply);
    }
    static int32_t number(const sp<IBinder>& peer, uint32_t code) {
        Parcel reply;
        EXPECT_EQ(ask(peer, code, &reply), OK);
        return reply.readInt32();
    }

private:
    std::map<std::string, std::unique_ptr<Peer>> mPeers;
};

TEST_F(ProcessTest, CallCarriesItsCaller) {
    Parcel reply;
    ASSERT_EQ(ask(peer("who"), kWho, &reply), OK);
    EXPECT_EQ(reply.readInt32(), getpid());
    EXPECT_EQ(reply.readInt32(), int32_t(geteuid()));
}

TEST_F(ProcessTest, ContextManagerKnowsItsCallersSecurityContextWhereTheKernelHasOne) {
    std::string fileSystems;
    ASSERT_TRUE(android::base::ReadFileToString("/proc/filesystems", &fileSystems));
    const bool due = onDevice() && fileSystems.find("selinuxfs") != std::string::npos;
    const sp<IBinder> binder = peer("contextual");
    EXPECT_EQ(!gRegistry->lastContext().empty(), due) << gRegistry->lastContext();
    EXPECT_EQ(binder->pingBinder(), OK);
}

TEST_F(ProcessTest, PeerAnswersPingPidAndDescriptor) {
    const sp<IBinder> binder = peer("meta");
    pid_t pid = 0;
    EXPECT_EQ(binder->pingBinder(), OK);
    EXPECT_EQ(binder->getDebugPid(&pid), OK);
    EXPECT_EQ(pid, process("meta").pid());
    EXPECT_EQ(binder->getInterfaceDescriptor(), String16());
    Parcel reply;
    EXPECT_EQ(ask(binder, 999, &reply), UNKNOWN_TRANSACTION);
}

TEST_F(ProcessTest, OneProxyPerObjectHoweverItArrives) {
    const sp<IBinder> first = peer("first");
    const sp<IBinder> second = peer("second");
    ASSERT_EQ(keep(second, first), OK);
    EXPECT_EQ(give(second), first);
    EXPECT_EQ(give(second), gRegistry->await("first"));
    EXPECT_NE(first, second);
}

TEST_F(ProcessTest, BinderThatComesHomeIsTheSameObject) {
    const sp<IBinder> binder = peer("home");
    const sp<BBinder> local = new Local(nullptr);
    ASSERT_EQ(keep(binder, local), OK);
    EXPECT_EQ(give(binder), local);
    EXPECT_EQ(give(binder)->localBinder(), local.get());
}

TEST_F(ProcessTest, ObjectLivesAsLongAsAnotherProcessHoldsIt) {
    const sp<IBinder> binder = peer("holder");
    auto gone = std::make_shared<std::promise<void>>();
    struct Dying : BBinder {
        std::shared_ptr<std::promise<void>> gone;
        explicit Dying(std::shared_ptr<std::promise<void>> told) : gone(std::move(told)) {}
        ~Dying() override { gone->set_value(); }
    };
    ASSERT_EQ(keep(binder, new Dying(gone)), OK);
    std::future<void> ended = gone->get_future();
    EXPECT_NE(give(binder), nullptr);
    EXPECT_NE(ended.wait_for(0s), std::future_status::ready);
    Parcel reply;
    ASSERT_EQ(ask(binder, kDrop, &reply), OK);
    EXPECT_EQ(ended.wait_for(kDeadline), std::future_status::ready);
}

TEST_F(ProcessTest, ProxyThatIsDroppedReleasesTheObject) {
    const sp<IBinder> binder = peer("maker");
    for (int round = 0; round < 100; round++) {
        Parcel reply;
        ASSERT_EQ(ask(binder, kMake, &reply), OK);
        ASSERT_NE(reply.readStrongBinder(), nullptr);
    }
    EXPECT_TRUE(eventually([&] { return number(binder, kCountMade) == 0; }));
}

TEST_F(ProcessTest, EveryOfAThousandLinksIsToldOnceOfADeath) {
    const sp<IBinder> binder = peer("dying");
    std::atomic<int> notices = 0;
    std::vector<sp<Recipient>> recipients;
    for (int i = 0; i < 1000; i++) {
        recipients.push_back(new Recipient(&notices));
        ASSERT_EQ(binder->linkToDeath(recipients.back()), OK);
    }
    ASSERT_EQ(binder->unlinkToDeath(recipients[500]), OK);
    process("dying").kill();
    EXPECT_TRUE(eventually([&] { return notices >= 999; }));
    EXPECT_FALSE(binder->isBinderAlive());
    EXPECT_EQ(binder->linkToDeath(recipients[0]), DEAD_OBJECT);
    Parcel reply;
    EXPECT_EQ(ask(binder, kEcho, &reply), DEAD_OBJECT);
    EXPECT_EQ(notices, 999);
}

TEST_F(ProcessTest, LinkingAndUnlinkingAThousandTimesLeavesOneNotice) {
    const sp<IBinder> binder = peer("linked");
    std::atomic<int> notices = 0;
    const sp<Recipient> recipient = new Recipient(&notices);
    for (int i = 0; i < 1000; i++) {
        ASSERT_EQ(binder->linkToDeath(recipient), OK);
        ASSERT_EQ(binder->unlinkToDeath(recipient), OK);
    }
    ASSERT_EQ(binder->linkToDeath(recipient), OK);
    process("linked").kill();
    EXPECT_TRUE(eventually([&] { return notices > 0; }));
    EXPECT_EQ(binder->unlinkToDeath(recipient), DEAD_OBJECT);
    EXPECT_EQ(notices, 1);
}

TEST_F(ProcessTest, LinkToAnObjectThatHasDiedIsAnsweredByTheNotice) {
    const sp<IBinder> binder = peer("late");
    process("late").kill();
    ASSERT_TRUE(gHub->awaitStat("processes", 1));
    std::atomic<int> notices = 0;
    const sp<Recipient> recipient = new Recipient(&notices);
    ASSERT_EQ(binder->linkToDeath(recipient), OK);
    EXPECT_TRUE(eventually([&] { return notices == 1; }));
}

TEST_F(ProcessTest, PeerThatDiesInACallIsADeadObject) {
    Parcel reply;
    EXPECT_EQ(ask(peer("victim"), kDie, &reply), DEAD_OBJECT);
}

TEST_F(ProcessTest, CallBackRunsOnTheThreadThatWaits) {
    const sp<IBinder> binder = peer("nested");
    std::thread::id servedBy;
    pid_t pid = 0;
    const sp<BBinder> target = new Local([&](uint32_t, const Parcel&, Parcel* reply) {
        servedBy = std::this_thread::get_id();
        pid = IPCThreadState::self()->getCallingPid();
        return reply->writeInt32(5);
    });
    Parcel reply;
    ASSERT_EQ(callBack(binder, target, 1, &reply), OK);
    EXPECT_EQ(reply.readInt32(), 5);
    EXPECT_EQ(servedBy, std::this_thread::get_id());
    EXPECT_EQ(pid, process("nested").pid());
    EXPECT_EQ(IPCThreadState::self()->getCallingPid(), getpid());
}

TEST_F(ProcessTest, CallersIdentityIsRestoredAfterANestedCall) {
    const sp<IBinder> outer = peer("outer");
    const sp<IBinder> inner = peer("inner");
    const sp<BBinder> second = new Local([&](uint32_t, const Parcel&, Parcel* reply) {
        return reply->writeInt32(IPCThreadState::self()->getCallingPid());
    });
    pid_t before = 0;
    pid_t within = 0;
    pid_t after = 0;
    const sp<BBinder> first = new Local([&](uint32_t, const Parcel&, Parcel*) {
        before = IPCThreadState::self()->getCallingPid();
        Parcel reply;
        const status_t status = callBack(inner, second, 1, &reply);
        within = reply.readInt32();
        after = IPCThreadState::self()->getCallingPid();
        return status;
    });
    Parcel reply;
    ASSERT_EQ(callBack(outer, first, 1, &reply), OK);
    EXPECT_EQ(before, process("outer").pid());
    EXPECT_EQ(within, process("inner").pid());
    EXPECT_EQ(after, before);
}

TEST_F(ProcessTest, PoolGrowsToFifteenMoreThreadsAndReportsItsStarvation) {
    const sp<IBinder> binder = peer("crowd");
    constexpr int kPool = 16;
    std::mutex lock;
    std::condition_variable changed;
    int inside = 0;
    bool open = false;
    const sp<BBinder> gate = new Local([&](uint32_t, const Parcel&, Parcel*) {
        std::unique_lock guard(lock);
        inside++;
        changed.notify_all();
        changed.wait_for(guard, kDeadline, [&] { return open; });
        return status_t(OK);
    });
    testing::internal::CaptureStderr();
    std::future<status_t> calls = std::async(std::launch::async, [&] {
        Parcel data;
        Parcel reply;
        data.writeStrongBinder(gate);
        data.writeUint32(1);
        data.writeInt32(kPool + 4);
        return binder->transact(kCallFromThreads, data, &reply);
    });
    {
        // The thread that called waits in the same chain as none of these: 16 of the pool serve.
        std::unique_lock guard(lock);
        EXPECT_TRUE(changed.wait_for(guard, kDeadline, [&] { return inside == kPool; }));
        EXPECT_FALSE(changed.wait_for(guard, 150ms, [&] { return inside > kPool; }));
        open = true;
    }
    changed.notify_all();
    EXPECT_EQ(calls.get(), OK);
    EXPECT_EQ(inside, kPool + 4);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("binder thread pool (16 threads) starved for"), std::string::npos) << log;
}

TEST_F(ProcessTest, OneWayCallsArriveInOrderAndWithoutACaller) {
    const sp<IBinder> binder = peer("sender");
    constexpr int32_t kCalls = 100000;
    std::atomic<int32_t> next = 0;
    std::atomic<int> outOfOrder = 0;
    std::atomic<int> withCaller = 0;
    const sp<BBinder> target = new Local([&](uint32_t, const Parcel& data, Parcel*) {
        if (data.readInt32() != next) outOfOrder++;
        if (IPCThreadState::self()->getCallingPid() != 0) withCaller++;
        next++;
        return status_t(OK);
    });
    Parcel data;
    Parcel reply;
    data.writeStrongBinder(target);
    data.writeUint32(1);
    data.writeInt32(kCalls);
    ASSERT_EQ(binder->transact(kSendMany, data, &reply), OK);
    EXPECT_TRUE(eventually([&] { return next == kCalls; }));
    EXPECT_EQ(outOfOrder, 0);
    EXPECT_EQ(withCaller, 0);
}

TEST_F(ProcessTest, SenderLogsThatAReceiverDoesNotKeepUp) {
    const sp<IBinder> binder = peer("flood");
    std::promise<void> open;
    const std::shared_future<void> gate = open.get_future().share();
    const sp<BBinder> target = new Local([gate](uint32_t, const Parcel&, Parcel*) {
        gate.wait_for(kDeadline);
        return status_t(OK);
    });
    std::future<status_t> calls = std::async(std::launch::async, [&] {
        Parcel data;
        Parcel reply;
        data.writeStrongBinder(target);
        data.writeUint32(1);
        // Beyond the half of a buffer that one-way calls may fill.
        data.writeInt32(200);
        data.writeInt32(4096);
        return binder->transact(kSendMany, data, &reply);
    });
    EXPECT_TRUE(eventually([&] {
        return process("flood").errors().find("does not keep up") != std::string::npos;
    })) << process("flood").errors();
    open.set_value();
    EXPECT_EQ(calls.get(), OK);
}

TEST_F(ProcessTest, CallToAFrozenProcessFailsUntilItIsThawed) {
    if (!onDevice()) GTEST_SKIP() << "only a kernel freezes processes";
    const sp<IBinder> binder = peer("frozen");
    const android::base::unique_fd device(
            open(binderhost::tests::testDevice().c_str(), O_RDWR | O_CLOEXEC));
    const auto freeze = [&](bool on) {
        binder_freeze_info info{.pid = static_cast<uint32_t>(process("frozen").pid()),
                                .enable = on ? 1u : 0u,
                                .timeout_ms = 1000};
        return ioctl(device.get(), BINDER_FREEZE, &info);
    };
    Parcel reply;
    ASSERT_TRUE(eventually([&] { return freeze(true) == 0; })) << "calls under way prevent it";
    EXPECT_EQ(ask(binder, kEcho, &reply), FAILED_TRANSACTION);
    EXPECT_EQ(freeze(false), 0);
    EXPECT_EQ(ask(binder, kEcho, &reply), OK);
}

TEST_F(ProcessTest, PayloadIsBoundedAndTooMuchHarmsNobody) {
    const sp<IBinder> binder = peer("big");
    const struct {
        size_t size;
        status_t status;
    } rows[] = {{0, OK}, {950000, OK}, {1050000, FAILED_TRANSACTION}, {950000, OK}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.size);
        const std::vector<uint8_t> bytes(row.size, 0x5a);
        Parcel data;
        Parcel reply;
        data.write(bytes.data(), bytes.size());
        EXPECT_EQ(binder->transact(kEcho, data, &reply), row.status);
        if (row.status == OK) {
            EXPECT_EQ(reply.dataSize(), row.size);
            EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), reply.data()));
        }
    }
    EXPECT_EQ(binder->pingBinder(), OK);
}

TEST_F(ProcessTest, DescriptorIsPassedCloseOnExecAndClosedAfterwards) {
    const sp<IBinder> binder = peer("writer");
    const int32_t before = number(binder, kCountPipes);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    {
        Parcel data;
        Parcel reply;
        ASSERT_EQ(data.writeFileDescriptor(ends[1], /*takeOwnership=*/true), OK);
        ASSERT_EQ(binder->transact(kWriteTo, data, &reply), OK);
        EXPECT_TRUE(reply.readBool());
    }
    std::array<char, 64> text{};
    EXPECT_EQ(read(ends[0], text.data(), text.size()), 17);
    EXPECT_STREQ(text.data(), "written by a peer");
    EXPECT_EQ(read(ends[0], text.data(), text.size()), 0) << "a writing end is still open";
    close(ends[0]);
    EXPECT_EQ(number(binder, kCountPipes), before);
}

TEST_F(ProcessTest, ServiceEndsWithAMessageWhenTheHubHasGone) {
    SKIP_ON_DEVICE("the kernel does not go");
    Hub other;
    Peer orphan(other, "orphan");
    ASSERT_TRUE(other.awaitStat("idle", 2));
    other.kill();
    EXPECT_EQ(orphan.awaitExit(), 1);
    EXPECT_NE(orphan.errors().find("the hub has gone: hub at " + other.path()), std::string::npos)
            << orphan.errors();
}

TEST_F(ProcessTest, ProcessWithoutAHubSaysWhatToStart) {
    SKIP_ON_DEVICE("there is no hub");
    Hub other;
    other.kill();
    Peer lost(other, "lost");
    EXPECT_EQ(lost.awaitExit(), 1);
    EXPECT_NE(lost.errors().find("binderhub"), std::string::npos) << lost.errors();
    EXPECT_NE(lost.errors().find(other.path()), std::string::npos) << lost.errors();
}

}  // namespace

int main(int argc, char** argv) {
    // Else the log makes one up at its first line, unseen by the thread sanitizer: a race if two
    // threads write at once.
    __android_log_set_default_tag("binder_process_test");
    if (argc == 3 && std::string(argv[1]) == "--peer") runPeer(argv[2]);
    if (argc == 3 && std::string(argv[1]) == "--hostile") runHostile(argv[2]);
    testing::InitGoogleTest(&argc, argv);
    Hub hub;
    gHub = &hub;
    const sp<ProcessState> process = ProcessState::initWithDriver(hub.path().c_str());
    gRegistry = new Registry();
    IPCThreadState::self()->setTheContextObject(gRegistry);
    if (!process->becomeContextManager()) return 1;
    process->startThreadPool();
    const int result = RUN_ALL_TESTS();
    // Without destructors: threads of the pool end the process when they see the hub go.
    std::fflush(nullptr);
    hub.leave();
    _exit(result);
}
