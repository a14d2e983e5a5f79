// SPDX-License-Identifier: Apache-2.0
//
// Paths into the daemon's JSON dump, and values to compare with what is there.
//
//      policy.allClients[pid:game].package      members, an element by pid
//      policy.renderingClients[0]               an element by number, from 0
//      policy.renderingClients[*]               any element
//      policy.renderingClients.#                how many
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "scenario/Scope.h"
#include "session/Headset.h"

namespace sim::scenario {

/** False: it is no JSON, or more than a thousand levels deep. */
[[nodiscard]] bool parseJson(const std::string& text, Json::Value* out);

/** pid:APP and uid:APP as numbers; SessionError for an app that was never started. */
[[nodiscard]] std::string withNumbers(const Headset& headset, const std::string& word);

/**
 * A value as it is written in a scenario: JSON in which pid:APP and uid:APP stand for numbers, or
 * else the word itself as a string.
 */
[[nodiscard]] Json::Value valueIn(const Headset& headset, const std::string& word);

/** Why a word is no path, or no value, where these apps are known; empty: it is. */
[[nodiscard]] std::string problemOfPath(const std::string& path, const Scope& scope);
[[nodiscard]] std::string problemOfValue(const std::string& word, const Scope& scope);

/** What the path leads to: nothing, one value, or several by [*]. SessionError for no path. */
[[nodiscard]] std::vector<Json::Value> valuesAt(const Headset& headset, const Json::Value& root,
                                                const std::string& path);

}  // namespace sim::scenario
