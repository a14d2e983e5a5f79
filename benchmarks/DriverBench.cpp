// SPDX-License-Identifier: Apache-2.0
//
// What a call through the embedded driver costs: hub, server and client as real processes, all on
// one processor, beside a bare socket broker in the same run. Where BINDER_DRIVER names a binder
// device there is no hub, and the kernel carries the calls.
#include <benchmark/benchmark.h>
#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <driver/Driver.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "BareBroker.h"
#include "BareTransfer.h"
#include "ChildProcess.h"
#include "RatioTable.h"

using android::BBinder;
using android::IBinder;
using android::IPCThreadState;
using android::Parcel;
using android::ProcessState;
using android::sp;
using android::status_t;

namespace {

/** Bytes: one that travels in a record of the socket, and one that travels in a memory file. */
constexpr int kSmallPayload = 4096;
constexpr int kLargePayload = 256 * 1024;

/** Answers with as many bytes as it got; asks who calls, as every real service does. */
class EchoService : public BBinder {
protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code != FIRST_CALL_TRANSACTION) return BBinder::onTransact(code, data, reply, flags);
        benchmark::DoNotOptimize(IPCThreadState::self()->getCallingUid());
        benchmark::DoNotOptimize(IPCThreadState::self()->getCallingPid());
        const size_t size = data.dataSize();
        return size == 0 ? android::OK : reply->write(data.data(), size);
    }
};

void serve(int readyFd) {
    const sp<ProcessState> process = ProcessState::self();
    process->setThreadPoolMaxThreadCount(0);
    const sp<EchoService> service = new EchoService();
    if (!process->becomeContextManager()) {
        fprintf(stderr, "driver_bench: cannot become context manager\n");
        _exit(1);
    }
    android::IPCThreadState::self()->setTheContextObject(service);
    if (write(readyFd, "", 1) != 1) _exit(1);
    IPCThreadState::self()->joinThreadPool();
}

void callService(benchmark::State& state) {
    const sp<IBinder> service = ProcessState::self()->getContextObject(nullptr);
    Parcel data;
    const std::string payload(static_cast<size_t>(state.range(0)), 'x');
    if (!payload.empty()) data.write(payload.data(), payload.size());
    for (auto iteration : state) {
        Parcel reply;
        const status_t status = service->transact(IBinder::FIRST_CALL_TRANSACTION, data, &reply);
        if (status != android::OK) {
            state.SkipWithError("the call failed");
            break;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    pinToOneProcessor();
    leaveRoot();
    char folder[] = "/tmp/driver_bench.XXXXXX";
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
    int ready[2];
    if (pipe(ready) != 0) return 1;
    const pid_t server = startChild([&] { serve(ready[1]); });
    close(ready[1]);
    char byte;
    if (read(ready[0], &byte, 1) != 1) return 1;

    int status;
    {
        BareBroker broker;
        BarePair pair;
        BareTransfer small(kSmallPayload);
        BareTransfer large(kLargePayload);
        const auto add = [](const char* name, auto function) {
            return benchmark::RegisterBenchmark(name, function)->Unit(benchmark::kMicrosecond);
        };
        add("socket_pair", [&](benchmark::State& state) {
            for (auto iteration : state)
                pair.call();
        });
        add("bare_broker", [&](benchmark::State& state) {
            for (auto iteration : state)
                broker.call();
        });
        add("call", callService)->Arg(0)->Arg(64)->Arg(kSmallPayload)->Arg(kLargePayload);
        add("bare_transfer",
            [&](benchmark::State& state) {
                BareTransfer& transfer = state.range(0) == kSmallPayload ? small : large;
                for (auto iteration : state)
                    transfer.call();
            })
                ->Arg(kSmallPayload)
                ->Arg(kLargePayload);
        status = runPaired(
                argc, argv,
                {{.name = "call/0", .anchor = "bare_broker", .goal = 1.25, .stretch = 0.85},
                 {.name = "call/64", .anchor = "bare_broker", .goal = 0},
                 {.name = "bare_broker", .anchor = "socket_pair", .goal = 0},
                 {.name = "call/4096", .anchor = "bare_transfer/4096", .goal = 0},
                 {.name = "call/262144", .anchor = "bare_transfer/262144", .goal = 0}});
    }
    stopChild(server);
    if (hub > 0) stopChild(hub);
    std::filesystem::remove_all(folder);
    return status;
}
