// SPDX-License-Identifier: Apache-2.0
//
// headset run SCENARIO...: plays them, each on a headset of its own.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "scenario/Script.h"
#include "session/Headset.h"

namespace sim::scenario {

/**
 * Reads and checks all files; absent, and every mistake told, when there is one. Starts nothing,
 * and may wait for whoever writes a file: to be called while signals still end the process.
 */
[[nodiscard]] std::optional<std::vector<Script>> readFiles(const std::vector<std::string>& files);

/**
 * Plays one after the other, to the end of the first that fails. Exit status: 0 every expectation
 * held, 1 one did not or something could not be done, 128 + N stopped by signal N.
 */
[[nodiscard]] int playScripts(const Headset::Options& options, const std::vector<Script>& scripts);

}  // namespace sim::scenario
