// SPDX-License-Identifier: Apache-2.0
//
// A disagreement between daemon and oracle, for people and as a line of a scenario.
#pragma once

#include <string>

#include "Witness.h"
#include "session/Headset.h"

namespace oracle {

/** What was asked, what was due, what came, with the names of apps beside their pids. */
[[nodiscard]] std::string textOf(const Disagreement& found, const sim::Headset& headset);

/** The `expect` command of what the oracle says, on a line after those that it needs: it fails
 * where the daemon says something else. Empty: no command looks at this. */
[[nodiscard]] std::string expectationFor(const Disagreement& found, const sim::Headset& headset);

}  // namespace oracle
