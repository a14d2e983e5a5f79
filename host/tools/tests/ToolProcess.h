// SPDX-License-Identifier: Apache-2.0
//
// Tool process: a program of the build, as a child that never outlives the test.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace tools {

/** What the child sees; descriptors remain the caller's. -1: the test's own. */
struct Surroundings {
    /** BINDER_DRIVER. */
    std::string driver;
    int in = -1;
    int out = -1;
    int err = -1;
    /** Is kReadyFd in the child. */
    int ready = -1;
    /** Standard output is closed in the child. */
    bool closeOut = false;
};

class ToolProcess {
public:
    static constexpr int kReadyFd = 3;

    /** `words`: the program's name and its arguments. Aborts when no process can be made. */
    ToolProcess(const std::vector<std::string>& words, const Surroundings& surroundings);
    /** Kills it if need be, and waits for its end. */
    ~ToolProcess();
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    /** Returns when no thread of it runs any more. */
    void stop() const;
    void goOn() const;
    [[nodiscard]] pid_t pid() const { return mPid; }

    /** Waits for the end. The exit status; 128 + the signal that killed it; -1 after 30 s. */
    [[nodiscard]] int wait();

private:
    const pid_t mPid;
    bool mReaped = false;
};

/** What a program printed and how it ended. */
struct Transcript {
    int status = -1;
    std::string out;
    std::string err;
};

/** Runs a program to its end. `surroundings.out` and `.err` are replaced unless they are set. */
[[nodiscard]] Transcript runTool(const std::vector<std::string>& words, Surroundings surroundings);

}  // namespace tools
