// SPDX-License-Identifier: Apache-2.0
//
// Sink file: reads what writers append, also while they do.
//
// Usage:
//
//      SinkFile file(path);
//      while (file.readNew(consume).error == 0) {
//          if (!file.waitForChange(STDOUT_FILENO)) break;
//      }
//
// The path is looked at anew each time: the file may not be there yet, be replaced or be cut short.
// Waiting rests on notices of the kernel about the file's folder. Where those cannot be had, or do
// not tell (a link into another folder, a network's file system), a look every second does.
//
// Threads: one at a time.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>

namespace hosttelemetry {

class SinkFile {
public:
    /** What became of a reading. */
    struct [[nodiscard]] Status {
        /** 0, or an errno value: ENOENT (no file yet), EINVAL (no regular file), or another. */
        int error = 0;
        /** What went wrong, with the file's name; empty when nothing did. */
        std::string message;
    };

    /** Opens nothing yet. */
    explicit SinkFile(std::string path);

    /** Takes a piece of the file; `isFirst`: it is the file's beginning. */
    using Consumer = std::function<void(std::string_view piece, bool isFirst)>;

    /** Hands over everything that has come since the last call, and all of a new file. */
    Status readNew(const Consumer& consume);

    /**
     * Returns when the file may have changed since the last reading, or after a second. False: the
     * other side of `hangUpFd` has gone (a descriptor of -1 never does).
     */
    [[nodiscard]] bool waitForChange(int hangUpFd);

private:
    Status openCurrent();
    Status readToEnd(const Consumer& consume);
    [[nodiscard]] bool isReplaced() const;
    void watchFolder();
    void forgetNotices() const;
    [[nodiscard]] Status failure(int error, const std::string& what) const;

    const std::string mPath;
    android::base::unique_fd mFile;
    android::base::unique_fd mNotices;
    off_t mOffset = 0;
};

}  // namespace hosttelemetry
