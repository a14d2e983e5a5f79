// SPDX-License-Identifier: Apache-2.0
//
// What a focus decision costs in process, beside the bare system calls that find out who owns each
// process, what it is called and whether it lives; for processes that are asked about over and
// over, and for such as nobody has looked at yet, where the kernel itself has more to do.
//
// What is not the daemon's own is kept out: the permission controller answers at once, since on a
// device its time is that of three calls to another process, and the tests' fake would write a log
// of every question. What is the daemon's own is kept in: the questions for properties go to a
// store as it is on a device, which always has one, and there "ro.debuggable" is 0 on what is sold.
#include <android-base/file.h>
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <binder/IPermissionController.h>
#include <cutils/properties.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ClientManager.h"
#include "ConnectionManager.h"
#include "FocusPolicy.h"
#include "Nursery.h"
#include "RatioTable.h"
#include "fakes/FakeServiceManager.h"
#include "fakes/MortalService.h"

using NQS::OS::ClientManager;
using NQS::OS::ConnectionManager;
using NQS::OS::FakeServiceManager;
using NQS::OS::FocusPolicy;
using NQS::OS::FocusType;
using NQS::OS::MortalService;
using velmar::internal::ClientStatus;

namespace {

constexpr int kMostProcesses = 1000;
/** Times that new processes are started, in each repetition. */
constexpr int kFirstLooks = 5;

/** Nobody has a permission or a package. */
class EmptyPermissionController : public MortalService<android::BnPermissionController> {
public:
    bool checkPermission(const android::String16&, int32_t, int32_t) override { return false; }
    void getPackagesForUid(const uid_t, android::Vector<android::String16>&) override {}
    int32_t noteOp(const android::String16&, int32_t, const android::String16&) override {
        return 0;
    }
    bool isRuntimePermission(const android::String16&) override { return false; }
    int getPackageUid(const android::String16&, int) override { return -1; }
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

/** Of this thread, not of the clock: the new processes are not all at rest yet. */
std::chrono::duration<double> processorTime() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/** Times `look` on new processes at each iteration, and has them forgotten afterwards. */
void timeFirstLooks(benchmark::State& state, Nursery& nursery, ClientManager& clients,
                    const std::function<void(const std::vector<int>&)>& look) {
    for (auto iteration : state) {
        const std::vector<int> pids = nursery.start(static_cast<int>(state.range(0)));
        const auto start = processorTime();
        look(pids);
        state.SetIterationTime((processorTime() - start).count());
        nursery.stopAll();
        benchmark::DoNotOptimize(clients.getSnapshot());
    }
}

void lookBare(const std::vector<int>& pids) {
    for (int pid : pids)
        bareLook(pid);
}

void decide(FocusPolicy& policy, const std::vector<int>& pids) {
    std::vector<ClientStatus> out;
    policy.computeFocusState(FocusType::HeadTracking, pids, out);
    if (out.size() == pids.size()) return;
    fprintf(stderr, "a process is not known\n");
    exit(1);
}

/** Over the first N of the processes, which are known after the first round. */
template <typename Look>
void addKnown(const char* name, const std::vector<int>& all, Look look) {
    benchmark::RegisterBenchmark(name,
                                 [&all, look](benchmark::State& state) {
                                     const std::vector<int> pids(all.begin(),
                                                                 all.begin() + state.range(0));
                                     for (auto iteration : state)
                                         look(pids);
                                 })
            ->Unit(benchmark::kMicrosecond)
            ->RangeMultiplier(10)
            ->Range(1, kMostProcesses);
}

template <typename Look>
void addFirst(const char* name, Nursery& newcomers, ClientManager& clients, Look look) {
    benchmark::RegisterBenchmark(name,
                                 [&newcomers, &clients, look](benchmark::State& state) {
                                     timeFirstLooks(state, newcomers, clients, look);
                                 })
            ->Unit(benchmark::kMicrosecond)
            ->UseManualTime()
            ->Iterations(kFirstLooks)
            ->Arg(10)
            ->Arg(100);
}

std::vector<PairedBenchmark> pairs() {
    std::vector<PairedBenchmark> out;
    for (const char* count : {"1", "10", "100", "1000"}) {
        const bool one = count == std::string("1");
        out.push_back({.name = std::string("computeFocusState/") + count,
                       .anchor = std::string("bare_calls/") + count,
                       .goal = one ? 0.75 : 0.60,
                       .processorTime = true,
                       .stretch = one ? 0.55 : 0.45});
    }
    for (const char* count : {"10", "100"}) {
        const std::string suffix = std::string("/") + count +
                                   "/iterations:" + std::to_string(kFirstLooks) + "/manual_time";
        out.push_back({.name = "first_look" + suffix,
                       .anchor = "bare_first_look" + suffix,
                       .goal = 1.25,
                       .stretch = 1.10});
    }
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    pinToOneProcessor();
    // The daemon's own lines would drown the table.
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
    const TemporaryDir folder;
    setenv("HOST_PROPERTIES", (std::string(folder.path) + "/properties").c_str(), /*overwrite=*/1);
    if (property_set("ro.debuggable", "0") != 0) return 1;
    // First: the tracker has threads, and a fork of those is no clean process.
    Nursery elders;
    Nursery newcomers;
    const std::vector<int> all = elders.start(kMostProcesses);
    // Every process is looked up at a permission controller once, when it is first seen.
    FakeServiceManager::installed().add("permission", new EmptyPermissionController());
    const auto connections = std::make_shared<ConnectionManager>();
    const auto clients = std::make_shared<ClientManager>(connections);
    FocusPolicy policy(connections, clients);
    // A registry of their own: to forget the dead is not to touch a thousand others.
    const auto newClients = std::make_shared<ClientManager>(connections);
    FocusPolicy newPolicy(connections, newClients);

    addKnown("bare_calls", all, lookBare);
    addKnown("computeFocusState", all,
             [&policy](const std::vector<int>& pids) { decide(policy, pids); });
    addFirst("bare_first_look", newcomers, *newClients, lookBare);
    addFirst("first_look", newcomers, *newClients,
             [&newPolicy](const std::vector<int>& pids) { decide(newPolicy, pids); });
    const Growth inProcesses{.name = "computeFocusState",
                             .expected = Growth::Expected::Linear,
                             .sizes = {10, 100, 1000},
                             .processorTime = true};
    return runPaired(argc, argv, pairs(), {inProcesses});
}
