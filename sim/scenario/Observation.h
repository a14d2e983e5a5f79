// SPDX-License-Identifier: Apache-2.0
//
// What the daemon answers the observer, in words: a refusal is its status in brackets.
//
// Errors as Player's.
#pragma once

#include <json/value.h>

#include <string>

#include "scenario/Player.h"

namespace sim::scenario {

/** "(security)": in the place of an answer that was refused. */
[[nodiscard]] std::string refusal(const Json::Value& answer);

/** "both", "head", "input", "none", or "gone" when the daemon knows no such process. */
[[nodiscard]] std::string focusOf(Player& player, const std::string& app);

/** The name of the app, or "none". */
[[nodiscard]] std::string immersiveApp(Player& player);

/** The package, or "none". */
[[nodiscard]] std::string topActivity(Player& player);

}  // namespace sim::scenario
