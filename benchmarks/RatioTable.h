// SPDX-License-Identifier: Apache-2.0
//
// Benchmarks beside their anchors.
//
// Problem: on a shared virtual machine a time says little, and its ratio to another time of the
// same minute says much. So every benchmark here is run beside an anchor, in repetitions that are
// interleaved, and what is shown is the ratio of the two medians.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/** A benchmark, what it is measured against, and what the ratio is to be at most. */
struct PairedBenchmark {
    // As Google Benchmark prints it, arguments included; "NAME:COUNTER" is a counter of it, which
    // has to be in the benchmark's time unit.
    std::string name;
    std::string anchor;  // the same
    double goal = 0;     // 0 when the ratio is only shown
    // Compares the processor's time of the thread that measures: for work that all happens there,
    // it leaves out what other programs took meanwhile.
    bool processorTime = false;
    double stretch = 0;  // a better ratio than the goal's; 0 when none is named
};

/** One benchmark at several sizes: how its time grows with them. */
struct Growth {
    /** Linear ones are shown as time an item, others as they are. */
    enum class Expected { Linear, Logarithmic };

    std::string name;  // without arguments
    Expected expected;
    std::vector<int64_t> sizes;  // ascending; those that were not run are left out
    std::string suffix = "";     // what Google Benchmark prints after the size
    bool processorTime = false;
};

/**
 * Runs all registered benchmarks with Google Benchmark's command line, then prints a table of the
 * pairs and one of the growths. All times are microseconds, so each benchmark has to be registered
 * with that unit. Returns the exit status: 0, 1 when a benchmark failed, 2 for arguments that are
 * not known. A goal that is missed is no failure.
 */
int runPaired(int argc, char** argv, const std::vector<PairedBenchmark>& pairs,
              const std::vector<Growth>& growths = {});

/** Pins this process, and what it starts from now on, to the first processor it may use. */
void pinToOneProcessor();
