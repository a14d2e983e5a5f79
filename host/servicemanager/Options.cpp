// SPDX-License-Identifier: Apache-2.0
//
// Options, from words.
#include "Options.h"

#include <android-base/parseint.h>

namespace servicemanager {

const char* const kUsage =
        "usage: servicemanager [--ready-fd N]\n"
        "\n"
        "Keeps the names of services for all processes that use the same binder driver\n"
        "(environment variable BINDER_DRIVER; start binderhub first where there is no device).\n"
        "\n"
        "  --ready-fd N  write one byte to descriptor N and close it when serving\n"
        "  --help        print this\n";

std::optional<Options> parseOptions(const std::vector<std::string>& arguments, std::string* error) {
    Options options;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--help") {
            options.help = true;
        } else if (argument == "--ready-fd") {
            int fd = -1;
            if (++i == arguments.size() ||
                !android::base::ParseInt(arguments[i].c_str(), &fd, /*min=*/0)) {
                *error = "--ready-fd wants a descriptor";
                return std::nullopt;
            }
            options.readyFd = fd;
        } else {
            *error = "unknown argument '" + argument + "'";
            return std::nullopt;
        }
    }
    return options;
}

}  // namespace servicemanager
