// SPDX-License-Identifier: Apache-2.0
//
// Process file system: system calls only, on the stack as far as it goes.
#include "ProcFs.h"

#include <android-base/macros.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>

namespace NQS::OS {

using android::base::unique_fd;

namespace {

/** More than nearly every first argument needs, so that one read does. */
constexpr size_t kChunk = 1024;

/**
 * "ROOT/PID" or "ROOT/PID/FILE". A path that does not fit is cut, which happens to no root in use;
 * the file is then not found.
 */
class Path {
public:
    Path(const char* root, int pid) { snprintf(mText, sizeof(mText), "%s/%d", root, pid); }
    Path(const char* root, int pid, const char* file) {
        snprintf(mText, sizeof(mText), "%s/%d/%s", root, pid, file);
    }
    [[nodiscard]] const char* c_str() const { return mText; }

private:
    char mText[PATH_MAX];
};

/**
 * What a file holds before the first `end` byte, or all of it. Empty when it cannot be read: a
 * process may go at any moment, and its files with it.
 */
std::string readUntil(const char* path, char end) {
    std::string text;
    const unique_fd fd(TEMP_FAILURE_RETRY(open(path, O_RDONLY | O_CLOEXEC)));
    if (!fd.ok()) return text;
    char chunk[kChunk];
    while (true) {
        const ssize_t count = TEMP_FAILURE_RETRY(read(fd.get(), chunk, sizeof(chunk)));
        if (count < 0) return {};
        if (count == 0) return text;
        const std::string_view part(chunk, static_cast<size_t>(count));
        const size_t length = part.find(end);
        text += part.substr(0, length);
        if (length != part.npos) return text;
    }
}

}  // namespace

std::optional<int> ProcFs::owner(int pid) const {
    struct stat folder;
    if (TEMP_FAILURE_RETRY(stat(Path(mRoot, pid).c_str(), &folder)) != 0) return std::nullopt;
    return static_cast<int>(folder.st_uid);
}

std::string ProcFs::commandName(int pid) const {
    return readUntil(Path(mRoot, pid, "cmdline").c_str(), '\0');
}

std::string ProcFs::shortName(int pid) const {
    // The name itself may hold newlines; only the last byte is the file's own.
    std::string name = readUntil(Path(mRoot, pid, "comm").c_str(), '\0');
    if (!name.empty() && name.back() == '\n') name.pop_back();
    return name;
}

}  // namespace NQS::OS
