// SPDX-License-Identifier: Apache-2.0
// What the words of scenarios stand for.
#include "scenario/Vocabulary.h"

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <utility>

namespace sim::scenario {

const Names& statusNames() {
    static const Names kNames{{"ok", 0},
                              {"security", -1},
                              {"illegal-argument", -3},
                              {"null-pointer", -4},
                              {"dead", -129}};
    return kNames;
}

const Names& focusTypeNames() {
    static const Names kNames{{"head", 0}, {"input", 1}};
    return kNames;
}

const Names& sessionStateNames() {
    static const Names kNames{{"visible", 0}, {"stopping", 2}};
    return kNames;
}

const Names& displayEventNames() {
    static const Names kNames{{"added", 1}, {"changed", 2}, {"removed", 3}};
    return kNames;
}

const std::map<std::string, std::string>& permissionNames() {
    static const std::map<std::string, std::string> kNames{
            {"read-focus", "com.velmar.permission.READ_FOCUS_STATE"},
            {"grant-tracking", "com.velmar.permission.GRANT_TRACKING_SERVICE_ACCESS_TO_DISPLAY"},
            {"background-head", "com.velmar.permission.ACCESS_BACKGROUND_HEAD_TRACKING"},
            {"background-input", "com.velmar.permission.ACCESS_BACKGROUND_INPUT_TRACKING"},
            {"dump", "android.permission.DUMP"},
    };
    return kNames;
}

const std::map<std::string, std::string>& systemProcessNames() {
    static const std::map<std::string, std::string> kNames{
            {"activity", "activity"},
            {"display", "display"},
            {"permission", "permission"},
            {"package_native", "package_native"},
            {"VelmarWindowManager", "VelmarWindowManager"},
            {"windowmanager", "VelmarWindowManager"},
            {"vrfocushelper", "vrfocushelper"},
            {"helper", "vrfocushelper"},
            {"servicemanager", "servicemanager"},
            {"hub", "binderhub"},
            {"vrfocus", "vrfocus"},
            {"daemon", "vrfocus"},
    };
    return kNames;
}

int numberOf(const Names& names, const std::string& word) {
    const auto found = names.find(word);
    return found != names.end() ? found->second : std::stoi(word);
}

std::optional<double> secondsOf(const std::string& word) {
    const bool isWritten = word.find_first_of("0123456789") != std::string::npos &&
                           word.find_first_not_of("0123456789.") == std::string::npos &&
                           std::count(word.begin(), word.end(), '.') <= 1;
    if (!isWritten) return {};
    return std::strtod(word.c_str(), nullptr);  // never throws, whatever the size
}

std::string wordFor(const Names& names, int number) {
    const auto found = std::find_if(names.begin(), names.end(),
                                    [&](const auto& entry) { return entry.second == number; });
    return found == names.end() ? std::to_string(number) : found->first;
}

std::string permissionOf(const std::string& word) {
    const auto found = permissionNames().find(word);
    return found == permissionNames().end() ? word : found->second;
}

std::optional<std::string> systemProcessOf(const std::string& word) {
    const auto found = systemProcessNames().find(word);
    if (found == systemProcessNames().end()) return {};
    return found->second;
}

bool isService(const std::string& process) {
    return process != "servicemanager" && process != "binderhub" && process != "vrfocus";
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (size_t index = 0; index < words.size(); ++index) {
        if (index > 0) text += index + 1 == words.size() ? " or " : ", ";
        text += words[index];
    }
    return text;
}

size_t distanceBetween(const std::string& left, const std::string& right) {
    std::vector<size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 0; i < left.size(); ++i) {
        size_t corner = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < right.size(); ++j) {
            const size_t change = corner + (left[i] == right[j] ? 0 : 1);
            corner = std::exchange(row[j + 1], std::min({change, row[j] + 1, row[j + 1] + 1}));
        }
    }
    return row.back();
}

}  // namespace sim::scenario
