// SPDX-License-Identifier: Apache-2.0
//
// The rows of a table of benchmarks, as text. Times are microseconds.
//
//      work                 us   anchor                us   ratio   goal  stretch  verdict
//      notify/100      5351.16   direct_send/100  1340.42    3.99   1.60     1.20  missed
#pragma once

#include <cstdint>
#include <string>
#include <utility>
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

/** The names of the columns of pairRow(). */
std::string pairHeading();

/**
 * A row whose last word is the verdict: "shown" when there is no goal, else "stretch", "met" or
 * "missed". tools/bench.sh gathers the rows that have a goal by it. Neither time is 0.
 */
std::string pairRow(const PairedBenchmark& pair, double measured, double anchor);

/**
 * A row with the time at each size, and at its end the exponent that leads from the first to the
 * last: linear growth has 1. The sizes ascend; there are two at least.
 */
std::string growthRow(const Growth& growth, const std::vector<std::pair<int64_t, double>>& times);
