// SPDX-License-Identifier: Apache-2.0
//
// How long the daemon takes from fork and exec until a client has found "vrfocus" at the service
// manager, with all platform services up; beside a program that does nothing with the same
// libraries, until it has ended. All processes share one processor.
#include <benchmark/benchmark.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utils/String16.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "RatioTable.h"
#include "session/SessionError.h"
#include "session/Stack.h"

using android::String16;

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kStarts = 5;
constexpr double kMostMilliseconds = 20;

pid_t startQuietly(const char* program) {
    return startChild([program] {
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDOUT_FILENO);
        dup2(nowhere, STDERR_FILENO);
        execl(program, program, nullptr);
        _exit(127);
    });
}

/** The service manager learns of a death from the driver, some time after it. */
void awaitGone(const String16& name) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (android::defaultServiceManager()->checkService(name) != nullptr) {
        if (Clock::now() > deadline) {
            fprintf(stderr, "the daemon's name outlives it\n");
            exit(1);
        }
        sched_yield();
    }
}

Milliseconds startDaemon() {
    static const String16 kName("vrfocus");
    awaitGone(kName);
    const auto start = Clock::now();
    const pid_t daemon = startQuietly(PROGRAMS "/vrfocus");
    if (android::defaultServiceManager()->waitForService(kName) == nullptr) {
        fprintf(stderr, "the service manager has gone\n");
        exit(1);
    }
    const Milliseconds passed = Clock::now() - start;
    stopChild(daemon);
    return passed;
}

Milliseconds startNothing() {
    const auto start = Clock::now();
    const pid_t nothing = startQuietly(PROGRAMS "/start_nothing");
    int status = 0;
    if (waitpid(nothing, &status, 0) != nothing || status != 0) {
        fprintf(stderr, "start_nothing failed\n");
        exit(1);
    }
    return Clock::now() - start;
}

template <typename Function>
void add(const char* name, Function start, std::vector<Milliseconds>* outTimes) {
    benchmark::RegisterBenchmark(name,
                                 [start, outTimes](benchmark::State& state) {
                                     for (auto iteration : state) {
                                         outTimes->push_back(start());
                                         state.SetIterationTime(outTimes->back().count() / 1000);
                                     }
                                 })
            ->Unit(benchmark::kMicrosecond)
            ->UseManualTime()
            ->Iterations(kStarts);
}

/** In the place of an anchor stands what the start may take. */
void printVerdict(std::vector<Milliseconds> times) {
    if (times.empty()) return;
    std::sort(times.begin(), times.end());
    const PairedBenchmark row{
            .name = "start_daemon, found", .anchor = "20 ms to be found", .goal = 1};
    puts(pairRow(row, times[times.size() / 2].count() * 1000, kMostMilliseconds * 1000).c_str());
    printf("at best after %.2f ms\n", times.front().count());
}

/** A client of the stack that the environment names. */
int measure(int argc, char** argv) {
    android::ProcessState::self()->startThreadPool();

    std::vector<Milliseconds> daemonTimes;
    std::vector<Milliseconds> nothingTimes;
    add("start_daemon", startDaemon, &daemonTimes);
    add("start_nothing", startNothing, &nothingTimes);
    const std::string suffix = "/iterations:" + std::to_string(kStarts) + "/manual_time";
    const int status = runPaired(
            argc, argv, {{.name = "start_daemon" + suffix, .anchor = "start_nothing" + suffix}});
    printVerdict(daemonTimes);
    return status;
}

int run(int argc, char** argv) {
    sim::Stack::Options options;
    options.programs = PROGRAMS;
    sim::Stack stack(options);
    stack.boot(sim::World());
    stack.killDaemon();
    for (const auto& [name, value] : stack.environment())
        setenv(name.c_str(), value.c_str(), /*overwrite=*/1);
    // Not here: a process that uses binder does not outlive its hub, which ends below.
    const pid_t client = startChild([argc, argv] {
        const int status = measure(argc, argv);
        fflush(nullptr);
        _exit(status);
    });
    int status = 0;
    waitpid(client, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

}  // namespace

int main(int argc, char** argv) {
    pinToOneProcessor();
    try {
        return run(argc, argv);
    } catch (const sim::SessionError& error) {
        fprintf(stderr, "start_bench: %s\n", error.what());
        return 1;
    }
}
