// SPDX-License-Identifier: Apache-2.0
//
// What a notification costs that goes to many processes, as focus notices do: how long until the
// last listener has it, and how long the daemon's thread is held by it. Beside it, in the same
// run, the same number of bare processes that are each sent a message.
//
//      this process ── "notify" ──▶ sender ── onVrFocusChanged ──▶ listener 1 … N
//
// The sender stands for the daemon: one of its pool's threads, inside a call, walks its map of
// listeners. All processes share one processor. Where BINDER_DRIVER names a binder device there is
// no hub, and the kernel carries the notices.
//
// usage: fanout_bench [--listeners=MOST] [GOOGLE-BENCHMARK-OPTION...]
#include <android-base/thread_annotations.h>
#include <benchmark/benchmark.h>
#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <driver/Driver.h>
#include <sys/resource.h>
#include <unistd.h>
#include <velmar/internal/BnVrFocusListener.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "BareListeners.h"
#include "ChildProcess.h"
#include "FanoutRound.h"
#include "RatioTable.h"

using android::BBinder;
using android::IBinder;
using android::IPCThreadState;
using android::Parcel;
using android::ProcessState;
using android::sp;
using android::status_t;
using android::binder::Status;
using velmar::internal::BnVrFocusListener;
using velmar::internal::IVrFocusListener;

namespace {

constexpr int kMostListeners = 1000;
constexpr int kFocusType = 0;
/** Rounds before the first that counts: each listener's pool grows by a thread at its first call.
 */
constexpr int kWarmUpRounds = 5;

enum Code : uint32_t {
    kRegister = IBinder::FIRST_CALL_TRANSACTION,
    kNotify,
};

[[noreturn]] void fail(const char* what) {
    fprintf(stderr, "fanout_bench: %s\n", what);
    _exit(1);
}

class Listener : public BnVrFocusListener {
public:
    explicit Listener(FanoutRound& round) : mRound(round) {}

    Status onVrFocusChanged(int32_t) override {
        mRound.received();
        return Status::ok();
    }

private:
    FanoutRound& mRound;
};

/** Keeps listeners as the daemon does, and tells them from a call that it handles. */
class Sender : public BBinder {
public:
    explicit Sender(FanoutRound& round) : mRound(round) {}

protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        switch (code) {
            case kRegister: {
                const int32_t pid = IPCThreadState::self()->getCallingPid();
                std::lock_guard lock(mMutex);
                mListeners[pid] =
                        android::interface_cast<IVrFocusListener>(data.readStrongBinder());
                return android::OK;
            }
            case kNotify:
                notify(data.readInt32());
                return android::OK;
            default:
                return BBinder::onTransact(code, data, reply, flags);
        }
    }

private:
    void notify(int count) EXCLUDES(mMutex) {
        mRound.begin();
        std::lock_guard lock(mMutex);
        for (const auto& [pid, listener] : mListeners) {
            if (count-- == 0) break;
            if (!listener->onVrFocusChanged(kFocusType).isOk()) fail("a listener was not told");
        }
        // What the runtime may have kept back for this thread's next exchange counts, too.
        IPCThreadState::self()->flushCommands();
        mRound.sent();
    }

    FanoutRound& mRound;
    /** Guards the map; held while listeners are told, as in the daemon. */
    std::mutex mMutex;
    std::map<int32_t, sp<IVrFocusListener>> mListeners GUARDED_BY(mMutex);
};

void serve(int readyFd, FanoutRound& round) {
    const sp<Sender> sender = new Sender(round);
    if (!ProcessState::self()->becomeContextManager()) fail("cannot become context manager");
    IPCThreadState::self()->setTheContextObject(sender);
    if (write(readyFd, "", 1) != 1) fail("nobody waits for the sender");
    IPCThreadState::self()->joinThreadPool();
}

/** An app's process: the pool of threads is the runtime's usual one. */
void listen(int readyFd, FanoutRound& round) {
    ProcessState::self()->startThreadPool();
    const sp<IBinder> sender = ProcessState::self()->getContextObject(nullptr);
    const sp<Listener> listener = new Listener(round);
    Parcel data;
    data.writeStrongBinder(android::IInterface::asBinder(listener));
    if (sender->transact(kRegister, data, nullptr) != android::OK) fail("cannot register");
    if (write(readyFd, "", 1) != 1) fail("nobody waits for the listener");
    close(readyFd);
    while (true)
        pause();
}

bool notifyThroughDriver(const sp<IBinder>& sender, int count, FanoutRound& round) {
    round.prepare(uint32_t(count));
    Parcel data;
    data.writeInt32(count);
    return sender->transact(kNotify, data, nullptr, IBinder::FLAG_ONEWAY) == android::OK &&
           round.wait();
}

/**
 * Times each whole round. Its counters: "reached", until the last listener had its message, and
 * "held", until the sender was free.
 */
template <typename Notify>
void timeRounds(benchmark::State& state, FanoutRound& round, Notify notify) {
    double reached = 0;
    double held = 0;
    for (auto iteration : state) {
        if (!notify(static_cast<int>(state.range(0)))) {
            state.SkipWithError("a listener was not told");
            break;
        }
        state.SetIterationTime(round.total());
        reached += round.reached();
        held += round.held();
    }
    const auto perIteration = benchmark::Counter::kAvgIterations;
    state.counters["reached"] = benchmark::Counter(reached * 1e6, perIteration);
    state.counters["held"] = benchmark::Counter(held * 1e6, perIteration);
}

void allowManyFiles() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

/** Takes "--listeners=MOST" out of the arguments. */
int takeMostListeners(int* argc, char** argv) {
    constexpr std::string_view kOption = "--listeners=";
    int most = kMostListeners;
    int kept = 1;
    for (int i = 1; i < *argc; i++) {
        const std::string_view argument = argv[i];
        if (!argument.starts_with(kOption)) {
            argv[kept++] = argv[i];
            continue;
        }
        const std::string_view number = argument.substr(kOption.size());
        const auto end = number.data() + number.size();
        const auto result = std::from_chars(number.data(), end, most);
        if (result.ptr != end || most < 1 || most > kMostListeners) {
            fprintf(stderr, "fanout_bench: --listeners wants 1 to %d\n", kMostListeners);
            exit(2);
        }
    }
    *argc = kept;
    return most;
}

/** A broker's fixed cost weighs most on one listener. */
PairedBenchmark pairFor(int count, const std::string& suffix) {
    return {.name = "notify" + suffix,
            .anchor = "direct_send" + suffix,
            .goal = count == 1      ? 2.4
                    : count == 1000 ? 1.5
                                    : 1.6,
            .stretch = count == 1 ? 2.0 : 1.2};
}

std::vector<PairedBenchmark> pairsFor(int most) {
    std::vector<PairedBenchmark> pairs;
    std::vector<PairedBenchmark> held;
    for (int count = 1; count <= most; count *= 10) {
        const std::string suffix = "/" + std::to_string(count) + "/manual_time";
        pairs.push_back(pairFor(count, suffix));
        held.push_back({.name = "notify" + suffix + ":held",
                        .anchor = "notify" + suffix,
                        .goal = count >= 100 ? 0.20 : 0,
                        .stretch = count >= 100 ? 0.05 : 0});
    }
    // Waking up the process that waits is a part of both sides, and a large one of one listener's.
    pairs.push_back({.name = "notify/1/manual_time:reached",
                     .anchor = "direct_send/1/manual_time:reached",
                     .goal = 0});
    pairs.insert(pairs.end(), held.begin(), held.end());
    return pairs;
}

int measure(int argc, char** argv, int most, FanoutRound& round, const BareListeners& bare) {
    const sp<IBinder> sender = ProcessState::self()->getContextObject(nullptr);
    for (int i = 0; i < kWarmUpRounds; i++) {
        if (!notifyThroughDriver(sender, most, round)) fail("a listener was not told");
    }
    const auto add = [most](const char* name, auto function) {
        auto* added = benchmark::RegisterBenchmark(name, function);
        added->Unit(benchmark::kMicrosecond)->UseManualTime();
        for (int count = 1; count <= most; count *= 10)
            added->Arg(count);
    };
    add("direct_send", [&](benchmark::State& state) {
        timeRounds(state, round, [&](int count) { return bare.notify(count); });
    });
    add("notify", [&](benchmark::State& state) {
        timeRounds(state, round,
                   [&](int count) { return notifyThroughDriver(sender, count, round); });
    });
    const auto growth = [](const char* name) {
        return Growth{.name = name,
                      .expected = Growth::Expected::Linear,
                      .sizes = {10, 100, 1000},
                      .suffix = "/manual_time"};
    };
    return runPaired(argc, argv, pairsFor(most), {growth("notify"), growth("direct_send")});
}

}  // namespace

int main(int argc, char** argv) {
    const int most = takeMostListeners(&argc, argv);
    pinToOneProcessor();
    allowManyFiles();
    leaveRoot();
    char folder[] = "/tmp/fanout_bench.XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        perror("mkdtemp");
        return 1;
    }
    pid_t hub = 0;
    if (!binderhost::namesDevice(binderhost::driverPath())) {
        const std::string socket = std::string(folder) + "/hub";
        setenv("BINDER_DRIVER", socket.c_str(), /*overwrite=*/1);
        hub = startServer({PROGRAMS "/binderhub", "--socket", socket});
    }
    FanoutRound& round = *FanoutRound::map();
    const pid_t sender = startReady([&](int readyFd) { serve(readyFd, round); });
    std::vector<pid_t> listeners;
    listeners.reserve(size_t(most));
    for (int i = 0; i < most; i++)
        listeners.push_back(startReady([&](int readyFd) { listen(readyFd, round); }));
    int status;
    {
        const BareListeners bare(most, round);
        status = measure(argc, argv, most, round, bare);
    }
    for (pid_t pid : listeners)
        stopChild(pid);
    stopChild(sender);
    if (hub > 0) stopChild(hub);
    std::filesystem::remove_all(folder);
    return status;
}
