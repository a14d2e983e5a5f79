// SPDX-License-Identifier: Apache-2.0
#include "RatioTable.h"

#include <benchmark/benchmark.h>
#include <sched.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
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

/** False when a pair was not measured. */
bool printPairs(CollectingReporter& reporter, const std::vector<PairedBenchmark>& pairs) {
    bool all = true;
    if (!pairs.empty()) printf("%s\n", pairHeading().c_str());
    for (const PairedBenchmark& pair : pairs) {
        const double measured = reporter.median(pair.name, pair.processorTime);
        const double anchor = reporter.median(pair.anchor, pair.processorTime);
        const bool both = measured > 0 && anchor > 0;
        if (both) printf("%s\n", pairRow(pair, measured, anchor).c_str());
        all = all && both;
    }
    return all;
}

void printGrowths(CollectingReporter& reporter, const std::vector<Growth>& growths) {
    for (const Growth& growth : growths) {
        std::vector<std::pair<int64_t, double>> times;
        for (const int64_t size : growth.sizes) {
            const std::string name = growth.name + "/" + std::to_string(size) + growth.suffix;
            const double time = reporter.median(name, growth.processorTime);
            if (time > 0) times.emplace_back(size, time);
        }
        if (times.size() > 1) printf("growth of %s\n", growthRow(growth, times).c_str());
    }
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
    const bool all = printPairs(reporter, pairs);
    printGrowths(reporter, growths);
    const std::string filter = benchmark::GetBenchmarkFilter();
    const bool filtered = !filter.empty() && filter != "." && filter != "all";
    if (!all && !filtered) fprintf(stderr, "a pair was not measured: is its name right?\n");
    return reporter.failed() || (!all && !filtered) ? 1 : 0;
}
