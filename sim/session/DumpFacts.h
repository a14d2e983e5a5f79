// SPDX-License-Identifier: Apache-2.0
//
// What the daemon's dumps must show at one moment: a few facts that must agree with its answers.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "session/Hearing.h"

namespace sim {

struct DumpFacts {
    Told told;
    /** Pids of the focus listeners, ascending, by type; a type that was ever used is there. */
    std::map<int, std::vector<int>> listeners;
};

/** What `dumpsys vrfocus` fails to show, a line each. */
[[nodiscard]] std::vector<std::string> missingInText(const DumpFacts& facts,
                                                     const std::string& text);

/** What `dumpsys vrfocus json` shows otherwise, a line each. */
[[nodiscard]] std::vector<std::string> wrongInJson(const DumpFacts& facts, const std::string& text);

}  // namespace sim
