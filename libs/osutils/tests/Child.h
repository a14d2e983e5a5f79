// SPDX-License-Identifier: Apache-2.0
//
// Child: a process of a test's own, for as long as the test looks at it.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <functional>
#include <string>

namespace NQS::OS::test {

class Child {
public:
    /**
     * Forks and runs `prepare` there, then waits to be killed. Returns when prepare has returned.
     */
    explicit Child(const std::function<void()>& prepare);

    /** Runs a program that copies its input, under this name, and returns when it does so. */
    explicit Child(const std::string& argument0);

    /** Kills and reaps it. */
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    [[nodiscard]] int pid() const { return mPid; }

    /** Ends it and leaves it a zombie. */
    void kill() const;

    /** Reaps it: from here on its pid names nothing. */
    void reap();

private:
    pid_t mPid;
    /** At the end of its input the program would end too. */
    android::base::unique_fd mInput;
    bool mReaped = false;
};

}  // namespace NQS::OS::test
