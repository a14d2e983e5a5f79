// SPDX-License-Identifier: Apache-2.0
//
// A program as a person runs it: its output line by line, its exit status, its end in time.
//
// Output and errors arrive as one stream. The program is killed with this object.
#pragma once

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "process/ChildProcess.h"
#include "process/LineChannel.h"

namespace sim {

constexpr std::chrono::seconds kProgramDeadline(60);

class RunningProgram {
public:
    explicit RunningProgram(Launch launch) {
        launch.logFile = std::string(mFolder.path) + "/output";
        EXPECT_EQ(mkfifo(launch.logFile.c_str(), 0600), 0);
        mOutput.reset(open(launch.logFile.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        std::string error;
        mProcess = ChildProcess::start(launch, &error);
        EXPECT_NE(mProcess, nullptr) << error;
    }

    /** Reads until the text has been printed. False when the output ends first or time is over. */
    [[nodiscard]] bool prints(const std::string& text) {
        while (mText.find(text) == std::string::npos) {
            if (!readMore()) return false;
        }
        return true;
    }

    /** Reads to the end; the exit status, 128 + signal number; absent when time is over. */
    [[nodiscard]] std::optional<int> finish() {
        while (readMore()) {
        }
        if (!awaitEnd(mProcess->pid())) return {};
        static_cast<void>(mProcess->running());
        return mProcess->exitStatus();
    }

    /** All that was read so far. */
    [[nodiscard]] const std::string& text() const { return mText; }
    [[nodiscard]] ChildProcess& process() { return *mProcess; }

    /** Whether a process ends before the deadline, whoever's child it is. */
    [[nodiscard]] static bool awaitEnd(pid_t pid) {
        const android::base::unique_fd fd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
        if (!fd.ok()) return errno == ESRCH;
        pollfd watched{fd.get(), POLLIN, 0};
        return poll(&watched, 1, millisecondsUntil(deadlineFromNow())) == 1;
    }

private:
    static LineChannel::Deadline deadlineFromNow() {
        return std::chrono::steady_clock::now() + kProgramDeadline;
    }

    bool readMore() {
        pollfd watched{mOutput.get(), POLLIN, 0};
        if (poll(&watched, 1, millisecondsUntil(mDeadline)) != 1) return false;
        std::array<char, 4096> chunk;
        const ssize_t size = read(mOutput.get(), chunk.data(), chunk.size());
        if (size <= 0) return false;
        mText.append(chunk.data(), static_cast<size_t>(size));
        return true;
    }

    const LineChannel::Deadline mDeadline = deadlineFromNow();
    TemporaryDir mFolder;
    android::base::unique_fd mOutput;
    std::unique_ptr<ChildProcess> mProcess;
    std::string mText;
};

}  // namespace sim
