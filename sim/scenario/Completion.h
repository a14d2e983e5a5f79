// SPDX-License-Identifier: Apache-2.0
//
// What could be typed next at the prompt, from the patterns of all commands and the names that are
// known.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "scenario/Scope.h"

namespace sim::scenario {

struct Completion {
    /** Whole words, sorted, each beginning with what has been typed of it. */
    std::vector<std::string> words;
    /** So many bytes before the cursor are the word that has been begun. */
    size_t typed = 0;
};

/** line: what stands before the cursor. */
[[nodiscard]] Completion complete(std::string_view line, const Scope& scope);

}  // namespace sim::scenario
