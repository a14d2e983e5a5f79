// SPDX-License-Identifier: Apache-2.0
//
// What the words of scenarios stand for: statuses, kinds of focus, permissions, system processes.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim::scenario {

using Names = std::map<std::string, int>;

/** Exceptions of binder statuses; "dead" is the one that stands for an error of the transport. */
[[nodiscard]] const Names& statusNames();
[[nodiscard]] const Names& focusTypeNames();
[[nodiscard]] const Names& sessionStateNames();
[[nodiscard]] const Names& displayEventNames();
/** Full names by short names. */
[[nodiscard]] const std::map<std::string, std::string>& permissionNames();
/** The processes of the stack, by the words for them. */
[[nodiscard]] const std::map<std::string, std::string>& systemProcessNames();

/** The number that a word of a table stands for; other words are numbers already. */
[[nodiscard]] int numberOf(const Names& names, const std::string& word);
/** Seconds, as digits with a point among them perhaps; absent when it is not written so. */
[[nodiscard]] std::optional<double> secondsOf(const std::string& word);
/** The word for a number; the number itself when there is none. */
[[nodiscard]] std::string wordFor(const Names& names, int number);
/** The permission that a short name stands for; others stand for themselves. */
[[nodiscard]] std::string permissionOf(const std::string& word);
/** The process of the stack that a word names; absent: it is none. */
[[nodiscard]] std::optional<std::string> systemProcessOf(const std::string& word);
/** Whether a process of the stack is one of the platform's services. */
[[nodiscard]] bool isService(const std::string& process);

/** How many letters must change to make one word of another. */
[[nodiscard]] size_t distanceBetween(const std::string& left, const std::string& right);

/** "a, b or c". */
[[nodiscard]] std::string joined(const std::vector<std::string>& words);

template <typename Map>
[[nodiscard]] std::vector<std::string> keysOf(const Map& map) {
    std::vector<std::string> keys;
    keys.reserve(map.size());
    for (const auto& [key, value] : map)
        keys.push_back(key);
    return keys;
}

/** The name of an app that no scenario can take: it asks for expectations. */
constexpr const char* kObserver = "observer";

}  // namespace sim::scenario
