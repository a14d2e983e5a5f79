// SPDX-License-Identifier: Apache-2.0
//
// Benchmarks beside their anchors.
//
// Problem: on a shared virtual machine a time says little, and its ratio to another time of the
// same minute says much. So every benchmark here is run beside an anchor, in repetitions that are
// interleaved, and what is shown is the ratio of the two medians.
#pragma once

#include <string>
#include <vector>

/** A benchmark, what it is measured against, and what the figure is to be. */
struct PairedBenchmark {
    std::string name;    // as Google Benchmark prints it, arguments included
    std::string anchor;  // the same
    double goal;         // ratio that is aimed at; 0 when the ratio is only shown
    // Compares the processor's time of the thread that measures: for work that all happens there,
    // it leaves out what other programs took meanwhile.
    bool processorTime = false;
};

/**
 * Runs all registered benchmarks with Google Benchmark's command line, then prints a table of the
 * pairs. Returns the exit status: 0, 1 when a benchmark failed, 2 for arguments that are not known.
 */
int runPaired(int argc, char** argv, const std::vector<PairedBenchmark>& pairs);

/** Pins this process, and what it starts from now on, to the first processor it may use. */
void pinToOneProcessor();
