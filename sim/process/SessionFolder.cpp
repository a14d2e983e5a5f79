// SPDX-License-Identifier: Apache-2.0
// The session's own folder.
#include "process/SessionFolder.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace sim {

std::unique_ptr<SessionFolder> SessionFolder::make(std::string* error) {
    const char* base = getenv("TMPDIR");
    std::string path = std::string(base != nullptr && *base != '\0' ? base : "/tmp");
    path += "/headset.XXXXXX";
    if (mkdtemp(path.data()) == nullptr || (geteuid() == 0 && chmod(path.c_str(), 0711) != 0)) {
        *error = path + ": " + strerror(errno);
        return nullptr;
    }
    return std::unique_ptr<SessionFolder>(new SessionFolder(path));
}

SessionFolder::~SessionFolder() {
    // What cannot be removed stays for the system's cleaning of temporary files.
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

}  // namespace sim
