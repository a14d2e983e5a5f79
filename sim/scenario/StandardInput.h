// SPDX-License-Identifier: Apache-2.0
//
// headset --stdin [--json]: commands from the standard input, answers on the standard output.
#pragma once

#include "session/Headset.h"

namespace sim::scenario {

/**
 * Takes every line there is, whatever comes of those before. Exit status: 0 everything was done,
 * 1 something was not as expected or could not be done, 2 there was a mistake and nothing worse,
 * 128 + N ended by signal N, of which SIGPIPE says that the reader has gone. The options name the
 * stop signals.
 */
[[nodiscard]] int runStandardInput(const Headset::Options& options, bool json);

}  // namespace sim::scenario
