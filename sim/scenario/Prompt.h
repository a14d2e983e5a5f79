// SPDX-License-Identifier: Apache-2.0
//
// headset: a headset that a person leads from a terminal.
//
//      headset> start game uid=10061
//             - game starts (pid 4102, uid 10061)
//      headset> repeat 3
//           ...> front game
//
// The interrupt key ends what is waited for, or clears the line. Mistakes and what does not hold
// are told, and the next line is asked for.
#pragma once

#include "session/Headset.h"

namespace sim::scenario {

/**
 * Exit status: 0 left by the person, 1 the headset cannot boot, 128 + N ended by signal N. The
 * options name the stop signals.
 */
[[nodiscard]] int runPrompt(const Headset::Options& options);

}  // namespace sim::scenario
