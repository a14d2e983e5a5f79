// SPDX-License-Identifier: Apache-2.0
//
// Sink file.
#include "SinkFile.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <utility>

namespace hosttelemetry {

namespace {

constexpr int kLookAgainMs = 1000;
constexpr size_t kPieceBytes = 65536;

}  // namespace

SinkFile::SinkFile(std::string path) : mPath(std::move(path)) {}

SinkFile::Status SinkFile::readNew(const Consumer& consume) {
    if (mFile.ok()) {
        // The old file's last lines come first.
        if (Status status = readToEnd(consume); status.error != 0) return status;
        if (!isReplaced()) return {};
        mFile.reset();
        mOffset = 0;
    }
    if (Status status = openCurrent(); status.error != 0) return status;
    return readToEnd(consume);
}

SinkFile::Status SinkFile::openCurrent() {
    // Non-blocking: a pipe would make the opening wait for a writer.
    android::base::unique_fd file(
            open(mPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat state {};
    if (!file.ok() || fstat(file.get(), &state) != 0) return failure(errno, strerror(errno));
    if (!S_ISREG(state.st_mode)) return failure(EINVAL, "not a regular file");
    mFile = std::move(file);
    return {};
}

SinkFile::Status SinkFile::readToEnd(const Consumer& consume) {
    struct stat state {};
    if (fstat(mFile.get(), &state) != 0) return failure(errno, strerror(errno));
    if (state.st_size < mOffset) mOffset = 0;
    std::array<char, kPieceBytes> piece;
    for (;;) {
        const ssize_t length = pread(mFile.get(), piece.data(), piece.size(), mOffset);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) return failure(errno, strerror(errno));
        if (length == 0) return {};
        const bool isFirst = mOffset == 0;
        mOffset += length;
        consume({piece.data(), static_cast<size_t>(length)}, isFirst);
    }
}

bool SinkFile::isReplaced() const {
    struct stat now {};
    struct stat open {};
    // A file that was only removed may still get lines from writers that had it open.
    if (stat(mPath.c_str(), &now) != 0 || fstat(mFile.get(), &open) != 0) return false;
    return now.st_dev != open.st_dev || now.st_ino != open.st_ino;
}

bool SinkFile::waitForChange(int hangUpFd) {
    if (!mNotices.ok()) {
        watchFolder();
        // What came between the last reading and this first watch is read at once.
        if (mNotices.ok()) return true;
    }
    std::array<pollfd, 2> waited = {pollfd{.fd = mNotices.get(), .events = POLLIN, .revents = 0},
                                    pollfd{.fd = hangUpFd, .events = 0, .revents = 0}};
    const int ready = poll(waited.data(), waited.size(), kLookAgainMs);
    forgetNotices();
    return ready <= 0 || (waited[1].revents & (POLLERR | POLLHUP | POLLNVAL)) == 0;
}

void SinkFile::watchFolder() {
    android::base::unique_fd notices(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!notices.ok()) return;
    std::string folder = std::filesystem::path(mPath).parent_path();
    if (folder.empty()) folder += '.';
    constexpr uint32_t kChanges = IN_CREATE | IN_MODIFY | IN_MOVED_TO;
    if (inotify_add_watch(notices.get(), folder.c_str(), kChanges) < 0) return;
    mNotices = std::move(notices);
}

void SinkFile::forgetNotices() const {
    // Which file a notice is about does not matter: the one that counts is looked at in any case.
    std::array<char, 4096> buffer;
    while (mNotices.ok() && read(mNotices.get(), buffer.data(), buffer.size()) > 0) {
    }
}

SinkFile::Status SinkFile::failure(int error, const std::string& what) const {
    return {.error = error, .message = mPath + ": " + what};
}

}  // namespace hosttelemetry
