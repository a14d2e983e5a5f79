// SPDX-License-Identifier: Apache-2.0
//
// A thousand processes with listeners, and one that registers ten thousand times: what the daemon
// and the hub hold meanwhile and afterwards.
//
// Memory is that which a process alone has written to. It moves by some pages from one moment to
// the next, so it is compared with a margin that a leak of the size in question exceeds.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <thread>

#include "Child.h"
#include "ListenersFixture.h"

namespace daemontest {
namespace {

using binderhost::tests::Child;
using binderhost::tests::Commands;
using binderhost::tests::RawClient;
using binderhost::tests::require;
using binderhost::tests::Return;

#ifdef UNDER_SANITIZER
// A process costs far more there, and its memory is mostly the sanitizer's own.
constexpr int kCrowd = 150;
constexpr int kTimes = 1000;
constexpr bool kMemoryIsTheirs = false;
#else
constexpr int kCrowd = 1000;
constexpr int kTimes = 10'000;
constexpr bool kMemoryIsTheirs = true;
#endif

/** So many calls in a row: its looper may run late, and what waits for it takes the hub's memory.
 */
constexpr int kInARow = 500;
static_assert(kTimes % kInARow == 0);

constexpr uint64_t kHead = 0x1000, kInput = 0x2000, kTop = 0x3000, kNew = 0x10000;

FocusRequest focusListener(uint64_t node, int type) {
    return FocusRequest().node(node).int32(type);
}

class CrowdTest : public ListenersFixture {
protected:
    CrowdTest() {
        // The session's processes give back what they free, instead of keeping it for later.
        for (const auto& [name, value] : {std::pair{"MALLOC_ARENA_MAX", "1"},
                                          {"MALLOC_TRIM_THRESHOLD_", "65536"},
                                          {"MALLOC_MMAP_THRESHOLD_", "131072"}})
            setenv(name, value, /*overwrite=*/1);
        // Each child costs the test a descriptor.
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }

    static void expectOk(FocusCaller& caller, uint32_t code, const FocusRequest& request) {
        require(isRefused(caller.call(code, request), 0), "taken");
    }
    static void expectIllegal(FocusCaller& caller, uint32_t code, const FocusRequest& request) {
        require(isRefused(caller.call(code, request), kIllegalArgument), "refused");
    }

    /** A process with a listener of each kind, 'r'; told once of each, 't'. */
    void listen(const Child::Door& door) {
        FocusCaller caller(hubPath());
        expectOk(caller, kRegisterVrFocusListener, focusListener(kHead, 0));
        expectOk(caller, kRegisterVrFocusListener, focusListener(kInput, 1));
        expectOk(caller, kRegisterVrTopActivityListener, FocusRequest().node(kTop));
        caller.raw().write(Commands().looper());
        door.tell('r');
        std::set<uint64_t> told;
        while (told.size() < 3) {
            const Return notice = caller.raw().expect(BR_TRANSACTION);
            require(told.insert(notice.data().target.ptr).second, "told once");
            caller.raw().write(Commands().freeBuffer(notice));
        }
        door.tell('t');
        (void)caller.raw().nextEvent();
        require(false, "nothing more is heard");
    }

    void awaitNobody() {
        mHeadset->awaitTrue("all are forgotten",
                            [this] { return registered() == std::vector<std::vector<int>>(2); });
    }

    void gatherTellAndKill() {
        std::vector<std::unique_ptr<Child>> crowd;
        for (int i = 0; i < kCrowd; ++i)
            crowd.push_back(std::make_unique<Child>([this](auto& door) { listen(door); }));
        for (const auto& each : crowd)
            each->await('r');
        for (const auto& pids : registered())
            EXPECT_EQ(pids.size(), size_t{kCrowd});
        mHeadset->reportWindowAgain();
        for (const auto& each : crowd)
            each->await('t');
        for (const auto& each : crowd)
            each->kill();
        crowd.clear();
        awaitNobody();
    }

    /** Of the daemon's log. */
    int linesWith(const std::string& text) {
        std::ifstream log(mHeadset->stack().folder().file("vrfocus.log"));
        int count = 0;
        for (std::string line; std::getline(log, line);)
            if (line.find(text) != std::string::npos) ++count;
        return count;
    }

    struct Memory {
        int64_t daemon, hub;
    };
    Memory memory() { return {privateBytesOf(daemonPid()), privateBytesOf(hubPidOf(hubPath()))}; }
    void expectNoMoreThan(int64_t margin, const Memory& before, const char* after) {
        const Memory now = memory();
        if (!kMemoryIsTheirs) return;
        EXPECT_LE(now.daemon - before.daemon, margin) << after;
        EXPECT_LE(now.hub - before.hub, margin) << after;
    }
};

int64_t median(std::vector<int64_t> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

TEST_F(CrowdTest, aThousandProcessesAreAllToldAndLeaveNothingWhenTheyAreKilled) {
    constexpr int kRounds = 3;
    // A leak of a hundred bytes for each listener is twice as much, in every round; a heap that
    // grows once, as more was under way at a time than before, does so in one.
    constexpr int64_t kMargin = int64_t{kCrowd} * 3 * 50;
    run([&] {
        // The first ones let tables and arenas grow to the size that stays.
        gatherTellAndKill();
        gatherTellAndKill();
        expectNoTrace([&] {
            std::vector<int64_t> daemon, hub;
            for (int round = 0; round < kRounds; ++round) {
                const Memory before = memory();
                gatherTellAndKill();
                const Memory after = memory();
                daemon.push_back(after.daemon - before.daemon);
                hub.push_back(after.hub - before.hub);
            }
            if (!kMemoryIsTheirs) return;
            EXPECT_LE(median(daemon), kMargin);
            EXPECT_LE(median(hub), kMargin);
        });
    });
}

TEST_F(CrowdTest, oneThatRegistersTenThousandTimesIsBoundedAndForgotten) {
    run([this] {
        struct Phase {
            const char* what;
            /** Of the daemon and the hub, in bytes for each time. */
            int64_t margin;
            void (*once)(FocusCaller& caller, uint64_t newNode);
        };
        const std::vector<Phase> phases{
                // The proxy lives on by another registration and keeps each link: 32 bytes, and
                // up to twice that while their list grows.
                {"the same, and gone", 100,
                 [](FocusCaller& caller, uint64_t) {
                     expectOk(caller, kRegisterVrFocusListener, focusListener(kInput, 0));
                     expectOk(caller, kUnregisterVrFocusListener, FocusRequest().int32(0));
                 }},
                // Less than the least thing that could be left of each.
                {"a new one, and gone", 16,
                 [](FocusCaller& caller, uint64_t node) {
                     expectOk(caller, kRegisterVrFocusListener, focusListener(node, 0));
                     expectOk(caller, kUnregisterVrFocusListener, FocusRequest().int32(0));
                 }},
                {"the same once more", 16,
                 [](FocusCaller& caller, uint64_t) {
                     expectIllegal(caller, kRegisterVrFocusListener, focusListener(kInput, 1));
                 }},
                {"a new one in vain", 16,
                 [](FocusCaller& caller, uint64_t node) {
                     expectIllegal(caller, kRegisterVrFocusListener, focusListener(node, 1));
                 }},
        };
        const auto play = [&](const Child::Door& door) {
            FocusCaller caller(hubPath());
            // Hears what becomes of its nodes, until all is killed.
            std::thread looper([&caller] {
                RawClient pool(&caller.raw());
                pool.write(Commands().looper());
                for (;;)
                    (void)pool.nextEvent();
            });
            expectOk(caller, kRegisterVrFocusListener, focusListener(kInput, 1));
            uint64_t node = kNew;
            for (const Phase& phase : phases) {
                for (int i = 0; i < kTimes; ++i) {
                    if (i % kInARow == 0) door.await('n');
                    phase.once(caller, node += 0x10);
                    if (i % kInARow == kInARow - 1) door.tell('d');
                }
            }
            looper.join();
        };
        const auto playPhase = [&](Child& player) {
            for (int i = 0; i < kTimes; i += kInARow) {
                player.tell('n');
                player.await('d');
                mHeadset->settle();
            }
        };
        // One before has the arenas grow to the size that stays.
        {
            Child first(play);
            for (size_t i = 0; i < phases.size(); ++i)
                playPhase(first);
        }
        awaitNobody();
        const Holdings held = settledHoldings();
        const Memory atFirst = memory();
        Child child(play);
        mHeadset->awaitTrue("it is there", [this] { return registered()[1].size() == 1; });
        const Holdings heldWithIt = settledHoldings();
        for (const Phase& phase : phases) {
            const Memory before = memory();
            playPhase(child);
            expectHoldings(heldWithIt);
            expectNoMoreThan(phase.margin * kTimes, before, phase.what);
        }
        EXPECT_EQ(linesWith("entry for pid " + std::to_string(child.pid()) + " already exists"),
                  2 * kTimes);
        child.killAndWait();
        awaitNobody();
        expectHoldings(held);
        expectNoMoreThan(16 * kTimes, atFirst, "all of it");
    });
}

}  // namespace
}  // namespace daemontest
