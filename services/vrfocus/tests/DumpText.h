// SPDX-License-Identifier: Apache-2.0
//
// Dump text: what a dump writes into a file descriptor, as a string.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace NQS::OS {

/** Runs `dump` on a file of its own, so that no size can block it. */
inline std::string dumpText(const std::function<void(int fd)>& dump) {
    std::FILE* file = std::tmpfile();
    if (file == nullptr) return "(no temporary file)";
    dump(fileno(file));
    std::string text;
    std::rewind(file);
    char buffer[4096];
    while (const std::size_t count = std::fread(buffer, 1, sizeof(buffer), file)) {
        text.append(buffer, count);
    }
    std::fclose(file);
    return text;
}

/** The pids of the immersive app history in a policy's dump, newest first. */
inline std::vector<int> historyPids(const std::string& dump) {
    const std::string heading = "History =\n";
    std::vector<int> pids;
    std::size_t line = dump.find(heading);
    if (line == std::string::npos) return pids;
    line += heading.size();
    while (line < dump.size() && dump[line] != '\n') {
        const std::size_t end = dump.find('\n', line);
        const std::size_t pid = dump.rfind("PID: ", end);
        pids.push_back(std::stoi(dump.substr(pid + 5, end - pid - 5)));
        line = end + 1;
    }
    return pids;
}

}  // namespace NQS::OS
