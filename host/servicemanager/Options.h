// SPDX-License-Identifier: Apache-2.0
//
// Options: the service manager's command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace servicemanager {

struct Options {
    bool help = false;
    /** Gets one byte and is closed when the service manager serves. */
    std::optional<int> readyFd;
};

extern const char* const kUsage;

/** Empty for a command line that is none, with what is wrong with it in `error`. */
[[nodiscard]] std::optional<Options> parseOptions(const std::vector<std::string>& arguments,
                                                  std::string* error);

}  // namespace servicemanager
