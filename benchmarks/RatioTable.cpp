// SPDX-License-Identifier: Apache-2.0
#include "RatioTable.h"

#include <benchmark/benchmark.h>
#include <sched.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <utility>

namespace {

/** Keeps every repetition's time; what is printed is the table alone. */
class CollectingReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) {
                fprintf(stderr, "%s: %s\n", run.run_name.str().c_str(), run.error_message.c_str());
                mFailed = true;
            } else if (run.run_type == Run::RT_Iteration) {
                mTimes[run.run_name.str()].push_back(run.GetAdjustedRealTime());
                mProcessorTimes[run.run_name.str()].push_back(run.GetAdjustedCPUTime());
                for (const auto& [counter, value] : run.counters)
                    mTimes[run.run_name.str() + ":" + counter].push_back(value);
            }
        }
    }

    /** Whether a benchmark could not do its work. */
    bool failed() const { return mFailed; }

    /** Median over repetitions, in the benchmark's time unit; 0 when it did not run. */
    double median(const std::string& name, bool processorTime) {
        auto& times = processorTime ? mProcessorTimes[name] : mTimes[name];
        if (times.empty()) return 0;
        std::sort(times.begin(), times.end());
        const size_t half = times.size() / 2;
        return times.size() % 2 ? times[half] : (times[half - 1] + times[half]) / 2;
    }

private:
    std::map<std::string, std::vector<double>> mTimes;
    std::map<std::string, std::vector<double>> mProcessorTimes;
    bool mFailed = false;
};

/** Shorter to read: what the library adds to say how a time was taken goes. */
std::string shown(std::string name) {
    for (const char* part : {"/manual_time", "/iterations:"}) {
        const size_t start = name.find(part);
        if (start == std::string::npos) continue;
        const size_t end = name.find_first_of("/:", start + strlen(part));
        name.erase(start, end == std::string::npos ? end : end - start);
    }
    return name;
}

/** The last word of a row: tools/bench.sh gathers the rows that have a goal by it. */
const char* verdict(const PairedBenchmark& pair, double ratio) {
    if (pair.goal == 0) return "shown";
    if (pair.stretch > 0 && ratio <= pair.stretch) return "stretch";
    return ratio <= pair.goal ? "met" : "missed";
}

std::string aimOf(double ratio) {
    char text[16] = "-";
    if (ratio > 0) snprintf(text, sizeof(text), "%.2f", ratio);
    return text;
}

void printPairs(CollectingReporter& reporter, const std::vector<PairedBenchmark>& pairs) {
    printf("%-26s %12s   %-26s %12s %7s %6s %8s  %s\n", "work", "us", "anchor", "us", "ratio",
           "goal", "stretch", "verdict");
    for (const PairedBenchmark& pair : pairs) {
        const double measured = reporter.median(pair.name, pair.processorTime);
        const double anchor = reporter.median(pair.anchor, pair.processorTime);
        if (measured == 0 || anchor == 0) continue;
        const double ratio = measured / anchor;
        printf("%-26s %12.2f   %-26s %12.2f %7.2f %6s %8s  %s\n", shown(pair.name).c_str(),
               measured, shown(pair.anchor).c_str(), anchor, ratio, aimOf(pair.goal).c_str(),
               aimOf(pair.stretch).c_str(), verdict(pair, ratio));
    }
}

/** A time that grows as a power of the size has one exponent between any two sizes. */
void printGrowth(CollectingReporter& reporter, const Growth& growth) {
    const bool linear = growth.expected == Growth::Expected::Linear;
    std::vector<std::pair<int64_t, double>> times;
    for (const int64_t size : growth.sizes) {
        const std::string name = growth.name + "/" + std::to_string(size) + growth.suffix;
        const double time = reporter.median(name, growth.processorTime);
        if (time > 0) times.emplace_back(size, time);
    }
    if (times.size() < 2) return;
    printf("%-26s %-12s %-8s", growth.name.c_str(), linear ? "linear" : "logarithmic",
           linear ? "an item" : "whole");
    for (const auto& [size, time] : times)
        printf(" %6lld: %8.2f", static_cast<long long>(size), linear ? time / double(size) : time);
    const auto& [firstSize, first] = times.front();
    const auto& [lastSize, last] = times.back();
    const double sizes = double(lastSize) / double(firstSize);
    printf("   time x%.2f, size x%.0f", last / first, sizes);
    if (!linear) printf(", its logarithm x%.2f", std::log(lastSize) / std::log(firstSize));
    printf(": n^%.2f\n", std::log(last / first) / std::log(sizes));
}

}  // namespace

void pinToOneProcessor() {
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof(set), &set) != 0) {
        perror("sched_getaffinity");
        exit(1);
    }
    for (int cpu = 0; cpu < CPU_SETSIZE; cpu++) {
        if (!CPU_ISSET(cpu, &set)) continue;
        CPU_ZERO(&set);
        CPU_SET(cpu, &set);
        break;
    }
    if (sched_setaffinity(0, sizeof(set), &set) != 0) {
        perror("sched_setaffinity");
        exit(1);
    }
}

int runPaired(int argc, char** argv, const std::vector<PairedBenchmark>& pairs,
              const std::vector<Growth>& growths) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    if (!pairs.empty()) printPairs(reporter, pairs);
    if (!growths.empty()) printf("%-26s %-12s us\n", "growth of", "expected");
    for (const Growth& growth : growths)
        printGrowth(reporter, growth);
    return reporter.failed() ? 1 : 0;
}
