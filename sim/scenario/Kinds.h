// SPDX-License-Identifier: Apache-2.0
//
// Kinds of words: what may stand at a place of a pattern, and what to say when something else does.
#pragma once

#include <string>
#include <vector>

#include "scenario/Pattern.h"
#include "scenario/Scope.h"

namespace sim::scenario {

/** Why a word is none of this kind here; empty: it is. */
[[nodiscard]] std::string checkKind(const std::string& kind, const std::string& word,
                                    const Scope& scope);

/** "an app that runs (APP)": what a place wants, for messages. */
[[nodiscard]] std::string expectationOf(const Pattern::Slot& slot);

/** What could stand at a place of this kind, for completion; empty when it could be anything. */
[[nodiscard]] std::vector<std::string> choicesOf(const std::string& kind, const Scope& scope);

}  // namespace sim::scenario
