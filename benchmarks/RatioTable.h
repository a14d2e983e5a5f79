// SPDX-License-Identifier: Apache-2.0
//
// Benchmarks beside their anchors.
//
// Problem: on a shared virtual machine a time says little, and its ratio to another time of the
// same minute says much. So every benchmark here is run beside an anchor, in repetitions that are
// interleaved, and what is shown is the ratio of the two medians.
#pragma once

#include <vector>

#include "RatioRows.h"

/**
 * Runs all registered benchmarks with Google Benchmark's command line, then prints a table of the
 * pairs and one of the growths. All times are microseconds, so each benchmark has to be registered
 * with that unit. Returns the exit status: 0, 1 when a benchmark failed or a pair was not measured
 * although no filter left it out, 2 for arguments that are not known. A goal that is missed is no
 * failure.
 */
int runPaired(int argc, char** argv, const std::vector<PairedBenchmark>& pairs,
              const std::vector<Growth>& growths = {});

/** Pins this process, and what it starts from now on, to the first processor it may use. */
void pinToOneProcessor();
