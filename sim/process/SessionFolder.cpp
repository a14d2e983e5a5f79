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
namespace {

const char* const kCommonFolder = "/tmp";

/** Whether everybody can pass through a folder and all above it. */
bool openToAll(std::filesystem::path folder) {
    struct stat status {};
    for (;; folder = folder.parent_path()) {
        if (stat(folder.c_str(), &status) != 0 || (status.st_mode & S_IXOTH) == 0) return false;
        if (folder == folder.root_path()) return true;
    }
}

std::string baseFolder() {
    const char* wanted = getenv("TMPDIR");
    std::error_code error;
    const auto folder = std::filesystem::canonical(wanted == nullptr ? "" : wanted, error);
    if (error || (geteuid() == 0 && !openToAll(folder))) return kCommonFolder;
    return folder.string();
}

}  // namespace

std::unique_ptr<SessionFolder> SessionFolder::make(std::string* error) {
    std::string path = baseFolder() + "/headset.XXXXXX";
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
