// SPDX-License-Identifier: Apache-2.0
//
// What a focus decision costs in process, beside the bare system calls it cannot do without: who
// owns the process, what it is called, whether it lives.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ClientManager.h"
#include "ConnectionManager.h"
#include "FocusPolicy.h"
#include "RatioTable.h"
#include "fakes/FakePermissionController.h"
#include "fakes/FakeServiceManager.h"

using NQS::OS::ClientManager;
using NQS::OS::ConnectionManager;
using NQS::OS::FakePermissionController;
using NQS::OS::FakeServiceManager;
using NQS::OS::FocusPolicy;
using NQS::OS::FocusType;
using velmar::internal::ClientStatus;

namespace {

constexpr int kMostProcesses = 1000;

/** Processes that do nothing but exist. */
class SleepingProcesses {
public:
    SleepingProcesses() {
        for (int i = 0; i < kMostProcesses; i++) {
            mPids.push_back(startChild([] {
                while (true)
                    pause();
            }));
        }
    }
    ~SleepingProcesses() {
        for (pid_t pid : mPids)
            stopChild(pid);
    }
    SleepingProcesses(const SleepingProcesses&) = delete;
    SleepingProcesses& operator=(const SleepingProcesses&) = delete;

    std::vector<int> first(int64_t count) const { return {mPids.begin(), mPids.begin() + count}; }

private:
    std::vector<int> mPids;
};

void bareLook(int pid) {
    char path[32];
    snprintf(path, sizeof(path), "/proc/%d", pid);
    struct stat status;
    benchmark::DoNotOptimize(stat(path, &status));
    snprintf(path, sizeof(path), "/proc/%d/cmdline", pid);
    char name[4096];
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0 || read(file, name, sizeof(name)) <= 0 || kill(pid, 0) != 0) {
        perror(path);
        exit(1);
    }
    close(file);
}

}  // namespace

int main(int argc, char** argv) {
    pinToOneProcessor();
    // The daemon's own lines would drown the table.
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
    // Children first: the tracker has threads, and a fork of those is no clean process.
    const SleepingProcesses processes;
    // Every process is looked up at a permission controller once, when it is first seen.
    FakeServiceManager::installed().add("permission", new FakePermissionController());
    const auto connections = std::make_shared<ConnectionManager>();
    const auto clients = std::make_shared<ClientManager>(connections);
    FocusPolicy policy(connections, clients);

    const auto add = [](const char* name, auto function) {
        benchmark::RegisterBenchmark(name, function)
                ->Unit(benchmark::kMicrosecond)
                ->RangeMultiplier(10)
                ->Range(1, kMostProcesses);
    };
    add("bare_calls", [&](benchmark::State& state) {
        const std::vector<int> pids = processes.first(state.range(0));
        for (auto iteration : state) {
            for (int pid : pids)
                bareLook(pid);
        }
    });
    add("computeFocusState", [&](benchmark::State& state) {
        const std::vector<int> pids = processes.first(state.range(0));
        for (auto iteration : state) {
            std::vector<ClientStatus> out;
            policy.computeFocusState(FocusType::HeadTracking, pids, out);
            if (out.size() != pids.size()) state.SkipWithError("a process is not known");
        }
    });
    std::vector<PairedBenchmark> pairs;
    for (const char* count : {"1", "10", "100", "1000"}) {
        pairs.push_back({std::string("computeFocusState/") + count,
                         std::string("bare_calls/") + count, /*goal=*/0});
    }
    return runPaired(argc, argv, pairs);
}
