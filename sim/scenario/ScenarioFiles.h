// SPDX-License-Identifier: Apache-2.0
//
// Scenarios as a person names them: by a file, with its ending or without, or by the name of one in
// the folder "scenarios" of the current folder.
#pragma once

#include <string>

namespace sim::scenario {

struct FoundScenario {
    std::string path;
    std::string complaint;  // empty: the file is there; else with the names that come nearest
};

/** Looks for the file as it is named first, then in the folder. */
[[nodiscard]] FoundScenario findScenario(const std::string& name);

}  // namespace sim::scenario
