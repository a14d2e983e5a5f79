// SPDX-License-Identifier: Apache-2.0
// What a person's shell leaves running when it ends.
#include "process/Orphans.h"

#include <android-base/file.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace sim {
namespace {

/** The parent of a process; 0 when it is gone. */
pid_t parentOf(const std::string& pid) {
    std::string stat;
    if (!android::base::ReadFileToString("/proc/" + pid + "/stat", &stat)) return 0;
    // The name, in brackets, may hold anything: what follows its end is the state and the parent.
    const size_t end = stat.rfind(')');
    char state = 0;
    int parent = 0;
    if (end == std::string::npos) return 0;
    return std::sscanf(stat.c_str() + end + 1, " %c %d", &state, &parent) == 2 ? parent : 0;
}

std::vector<pid_t> childrenOfThisProcess() {
    std::vector<pid_t> children;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
        const std::string name = entry.path().filename();
        if (isdigit(static_cast<unsigned char>(name[0])) == 0) continue;
        if (parentOf(name) == getpid()) children.push_back(atoi(name.c_str()));
    }
    return children;
}

}  // namespace

Orphans::Orphans() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
}

Orphans::~Orphans() {
    // Each round brings the children of those that the round before has killed.
    bool hasKilled = true;
    while (hasKilled) {
        hasKilled = false;
        for (const pid_t child : childrenOfThisProcess()) {
            if (kill(child, SIGKILL) != 0) continue;
            hasKilled = TEMP_FAILURE_RETRY(waitpid(child, nullptr, 0)) == child || hasKilled;
        }
    }
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

}  // namespace sim
