// SPDX-License-Identifier: Apache-2.0
//
// Child: a process that runs a function, and does not outlive the test.
#pragma once

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace hosttesting {

class Child {
public:
    /** `work` gives the exit status. */
    explicit Child(const std::function<int()>& work) {
        const pid_t parent = getpid();
        mPid = fork();
        if (mPid < 0) abort();
        if (mPid > 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);
        _exit(work());
    }
    ~Child() { end(SIGKILL); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    [[nodiscard]] pid_t pid() const { return mPid; }

    /** Waits; the exit status, or minus the signal that ended it. */
    int wait() {
        int status = 0;
        if (TEMP_FAILURE_RETRY(waitpid(mPid, &status, 0)) != mPid) abort();
        mPid = 0;
        return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }

    void end(int signal) {
        if (mPid == 0) return;
        kill(mPid, signal);
        wait();
    }

private:
    pid_t mPid;
};

}  // namespace hosttesting
