// SPDX-License-Identifier: Apache-2.0
//
// Options of dumpsys: its command line, understood.
#pragma once

#include <utils/String16.h>
#include <utils/Vector.h>

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tools {

struct DumpsysOptions {
    enum class Action {
        Help,
        /** The names of the services and nothing else. */
        List,
        /** One service, raw. */
        One,
        /** The names, then every service under a heading. */
        All,
    };

    Action action = Action::All;
    /** Asks for the process ids of the services instead of their dumps. */
    bool pid = false;
    /** How long one service may take, time that the output's reader takes not counted. */
    std::chrono::milliseconds timeout{10'000};
    /** Services that All passes over. */
    std::set<std::string> skipped;
    /** Of One. */
    std::string service;
    /** What the services are given; "-a" for All. */
    android::Vector<android::String16> arguments;
};

extern const char* const kDumpsysUsage;

/**
 * Options stop at the first word that is none: the service's name. Whatever is behind it is the
 * service's. Empty for a command line that is none, with what is wrong with it in `error`.
 */
[[nodiscard]] std::optional<DumpsysOptions> parseDumpsysOptions(
        const std::vector<std::string>& arguments, std::string* error);

}  // namespace tools
