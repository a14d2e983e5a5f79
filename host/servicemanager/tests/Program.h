// SPDX-License-Identifier: Apache-2.0
//
// Program: a built program as a child process of a test, gone with the test.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace servicemanager::test {

class Program {
public:
    /** Starts it; its messages are kept from then on. */
    explicit Program(const std::vector<std::string>& command);

    /** Starts it with "--ready-fd N" added, and aborts unless it says that it is ready in time. */
    [[nodiscard]] static Program ready(std::vector<std::string> command);

    Program(Program&& other) noexcept;
    Program& operator=(Program&&) = delete;
    ~Program();

    [[nodiscard]] pid_t pid() const { return mPid; }

    /** Kills and reaps it: when this returns, there is no such process. */
    void kill();

    /** Leaves it running until this process ends, which ends it too. */
    void leaveToParentsEnd() { mPid = 0; }

    /** Waits for its end, with a deadline: its exit status, negative for a signal. */
    int wait();

    /** After wait(): what it wrote to its standard output and error. */
    [[nodiscard]] const std::string& messages() const { return mMessages; }

private:
    Program(const std::vector<std::string>& command, int keptFd);
    int reap();

    pid_t mPid = 0;
    android::base::unique_fd mOutput;
    std::string mMessages;
};

}  // namespace servicemanager::test
