// SPDX-License-Identifier: Apache-2.0
//
// A finding as a scenario that shows it, as short as it can be had.
#pragma once

#include <string>

#include "Shortening.h"
#include "Trial.h"

namespace oracle {

/**
 * The text of a scenario. Plays variants of the lines, each on a headset of its own, for some
 * minutes at most; what did not show again says so in its first lines.
 */
[[nodiscard]] std::string scenarioOf(const Finding& finding, const Lines& lines, uint64_t seed,
                                     const sim::Headset::Options& options);

}  // namespace oracle
