// SPDX-License-Identifier: Apache-2.0
//
// headset --shell: some apps, one of them in front and rendering, two that listen; and a person's
// shell inside their headset.
//
// What the person does to the headset's processes is taken as what happens to a headset: an app
// that ends has crashed, and the platform tells so. Everything that ends is said in a line on
// standard error: the standard output is the shell's. The session ends with the shell.
#pragma once

#include <string>
#include <vector>

#include "session/Headset.h"

namespace sim::scenario {

/** Runs the command, or without one the person's shell. Its exit status; 1 when the headset could
 *  not be had, 128 + N stopped by signal N. */
[[nodiscard]] int runShell(const Headset::Options& options,
                           const std::vector<std::string>& command);

}  // namespace sim::scenario
