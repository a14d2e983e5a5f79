// SPDX-License-Identifier: Apache-2.0
//
// What the runtime adds to a kernel's binder: its calls beside bare ioctls in the same run, all on
// one processor. Needs a machine with three binder devices that nobody else uses:
//
//      /dev/binder      the runtime's calls and fan-out (or what BINDER_DRIVER names)
//      /dev/hwbinder    bare calls
//      /dev/vndbinder   bare fan-out
//
// Meant for an emulated processor whose clock counts instructions, one a nanosecond: a microsecond
// of the table is then a thousand instructions of both processes and the kernel, and two runs of
// the same programs agree.
//
// No process preempts another when it wakes up. Otherwise what the kernel does for a call depends
// on which of the two has run for longer, in steps of 3 %, which a run stays in or leaves by
// chance.
#include <benchmark/benchmark.h>
#include <sched.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "KernelCalls.h"
#include "KernelFanout.h"
#include "RatioTable.h"

using android::IBinder;
using android::Parcel;
using android::sp;

namespace {

constexpr uint32_t kMostListeners = 100;

void callRuntime(benchmark::State& state, const RuntimeCalls& calls) {
    const sp<IBinder> service = calls.service();
    Parcel data;
    const std::string payload(static_cast<size_t>(state.range(0)), 'x');
    if (!payload.empty()) data.write(payload.data(), payload.size());
    for (auto iteration : state) {
        Parcel reply;
        if (service->transact(IBinder::FIRST_CALL_TRANSACTION, data, &reply) == android::OK) {
            continue;
        }
        state.SkipWithError("the call failed");
        break;
    }
}

/** Of this process and all that it starts. */
void wakeWithoutPreempting() {
    const sched_param unused{};
    if (sched_setscheduler(/*pid=*/0, SCHED_BATCH, &unused) == 0) return;
    perror("SCHED_BATCH");
    exit(1);
}

}  // namespace

int main(int argc, char** argv) {
    setenv("BINDER_DRIVER", "/dev/binder", /*overwrite=*/0);
    pinToOneProcessor();
    wakeWithoutPreempting();
    const RuntimeCalls runtimeCalls;
    RuntimeFanout runtimeFanout(runtimeCalls, kMostListeners);
    RawCalls rawCalls("/dev/hwbinder");
    RawFanout rawFanout("/dev/vndbinder", kMostListeners);

    const auto add = [](const char* name, auto function) {
        return benchmark::RegisterBenchmark(name, function)->Unit(benchmark::kMicrosecond);
    };
    add("raw_call",
        [&](benchmark::State& state) {
            const auto size = static_cast<size_t>(state.range(0));
            for (auto iteration : state)
                rawCalls.call(size);
        })
            ->Arg(0)
            ->Arg(64);
    add("runtime_call", [&](benchmark::State& state) { callRuntime(state, runtimeCalls); })
            ->Arg(0)
            ->Arg(64);
    const auto addFanout = [&](const char* name, auto tell) {
        add(name,
            [tell](benchmark::State& state) {
                const auto count = static_cast<uint32_t>(state.range(0));
                for (auto iteration : state)
                    tell(count);
            })
                ->Arg(1)
                ->Arg(10)
                ->Arg(100);
    };
    addFanout("raw_tell", [&](uint32_t count) { rawFanout.tell(count, /*batched=*/false); });
    addFanout("raw_tell_batched", [&](uint32_t count) { rawFanout.tell(count, /*batched=*/true); });
    addFanout("runtime_tell", [&](uint32_t count) { runtimeFanout.tell(count); });

    return runPaired(
            argc, argv,
            {{.name = "runtime_call/0", .anchor = "raw_call/0", .goal = 1.14, .stretch = 1.08},
             {.name = "runtime_call/64", .anchor = "raw_call/64", .goal = 1.20, .stretch = 1.12},
             {.name = "runtime_tell/1", .anchor = "raw_tell/1"},
             {.name = "runtime_tell/10", .anchor = "raw_tell/10", .goal = 1.10, .stretch = 0.95},
             {.name = "runtime_tell/100", .anchor = "raw_tell/100", .goal = 1.10, .stretch = 0.95},
             {.name = "raw_tell_batched/10", .anchor = "raw_tell/10"},
             {.name = "raw_tell_batched/100", .anchor = "raw_tell/100"}});
}
