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

/** The same of the file under this path; no text when it cannot be read. */
std::string fileUntil(const char* path, char end) {
    const unique_fd fd(TEMP_FAILURE_RETRY(open(path, O_RDONLY | O_CLOEXEC)));
    if (!fd.ok()) return {};
    return ProcFs::readUntil(fd.get(), end).value_or(std::string());
}

}  // namespace

std::optional<std::string> ProcFs::readUntil(int fd, char end) {
    std::string text;
    char chunk[kChunk];
    // At positions of its own: the descriptor may be shared with other threads.
    for (off64_t position = 0;;) {
        const ssize_t count = TEMP_FAILURE_RETRY(pread64(fd, chunk, sizeof(chunk), position));
        if (count < 0) return std::nullopt;
        if (count == 0) return text;
        const std::string_view part(chunk, static_cast<size_t>(count));
        const size_t length = part.find(end);
        if (position == 0 && length != part.npos) return std::string(part.substr(0, length));
        text += part.substr(0, length);
        if (length != part.npos) return text;
        position += count;
    }
}

std::optional<KernelProcess::Owner> ProcFs::owner(int pid) const {
    struct stat folder;
    if (TEMP_FAILURE_RETRY(stat(Path(mRoot, pid).c_str(), &folder)) != 0) return std::nullopt;
    return KernelProcess::Owner{static_cast<int>(folder.st_uid), folder.st_ino};
}

std::string ProcFs::commandName(int pid) const {
    return fileUntil(Path(mRoot, pid, "cmdline").c_str(), '\0');
}

std::string ProcFs::shortName(int pid) const {
    // The name itself may hold newlines; only the last byte is the file's own.
    std::string name = fileUntil(Path(mRoot, pid, "comm").c_str(), '\0');
    if (!name.empty() && name.back() == '\n') name.pop_back();
    return name;
}

}  // namespace NQS::OS
