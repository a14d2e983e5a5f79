// SPDX-License-Identifier: Apache-2.0
// The session's own folder.
#include "process/SessionFolder.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <filesystem>
#include <system_error>

namespace sim {
namespace {

const char* const kCommonFolder = "/tmp";

std::string baseFolder() {
    const char* wanted = getenv("TMPDIR");
    std::error_code error;
    const auto folder = std::filesystem::canonical(wanted == nullptr ? "" : wanted, error);
    return error ? kCommonFolder : folder.string();
}

}  // namespace

std::unique_ptr<SessionFolder> SessionFolder::make(std::string* error) {
    std::string path = baseFolder() + "/headset.XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
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
