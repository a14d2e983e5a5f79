// SPDX-License-Identifier: Apache-2.0
//
// What a Linux machine has instead: an empty call over D-Bus, through the brokers that Debian
// packages, beside the embedded driver's call and a bare broker in the same run, all on one
// processor. A binder call always tells who calls; over D-Bus a service has to ask.
//
// What is not installed is left out, and said.
#include <benchmark/benchmark.h>
#include <binder/Parcel.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "BareBroker.h"
#include "ChildProcess.h"
#include "KernelCalls.h"
#include "PeerFolder.h"
#include "RatioTable.h"
#if HAS_SD_BUS
#include "PeerBus.h"
#endif

using android::IBinder;
using android::Parcel;
using android::sp;

namespace {

void callRuntime(benchmark::State& state, const RuntimeCalls& calls) {
    const sp<IBinder> service = calls.service();
    const Parcel data;
    for (auto iteration : state) {
        Parcel reply;
        if (service->transact(IBinder::FIRST_CALL_TRANSACTION, data, &reply) == android::OK) {
            continue;
        }
        state.SkipWithError("the call failed");
        break;
    }
}

template <typename Function>
void add(const std::string& name, Function function) {
    benchmark::RegisterBenchmark(name.c_str(), [function](benchmark::State& state) {
        for (auto iteration : state)
            function();
    })->Unit(benchmark::kMicrosecond);
}

}  // namespace

#if HAS_SD_BUS
namespace {

/** Those that are installed; with a message for each that is not. */
std::vector<std::unique_ptr<PeerBus>> startPeers(const PeerFolder& folder,
                                                 std::vector<PairedBenchmark>* outPairs) {
    std::vector<std::unique_ptr<PeerBus>> peers;
    for (const PeerBus::Broker broker : {PeerBus::Broker::Daemon, PeerBus::Broker::Broker}) {
        const std::string name = PeerBus::nameOf(broker);
        if (!PeerBus::isInstalled(broker)) {
            printf("%s: not installed\n", name.c_str());
            continue;
        }
        const PeerBus* const peer =
                peers.emplace_back(std::make_unique<PeerBus>(broker, folder)).get();
        add(name, [peer] { peer->call(/*identity=*/false); });
        add(name + "_identity", [peer] { peer->call(/*identity=*/true); });
        for (const std::string& each : {name, name + "_identity"}) {
            outPairs->push_back({.name = each, .anchor = "bare_broker"});
            outPairs->push_back({.name = "call", .anchor = each});
        }
    }
    return peers;
}

}  // namespace
#endif

int main(int argc, char** argv) {
    pinToOneProcessor();
    leaveRoot();
    static const PeerFolder folder;
    const std::string socket = folder.file("hub");
    setenv("BINDER_DRIVER", socket.c_str(), /*overwrite=*/1);
    const pid_t hub = startServer({PROGRAMS "/binderhub", "--socket", socket});
    int status;
    {
        const RuntimeCalls calls;
        const BareBroker broker;
        add("bare_broker", [&] { broker.call(); });
        benchmark::RegisterBenchmark("call", [&](benchmark::State& state) {
            callRuntime(state, calls);
        })->Unit(benchmark::kMicrosecond);
        std::vector<PairedBenchmark> pairs = {{.name = "call", .anchor = "bare_broker"}};
#if HAS_SD_BUS
        const auto peers = startPeers(folder, &pairs);
#else
        printf("dbus-daemon, dbus-broker: not installed (libsystemd-dev was not there to build)\n");
#endif
        status = runPaired(argc, argv, pairs);
    }
    stopChild(hub);
    return status;
}
