// SPDX-License-Identifier: Apache-2.0
//
// Child: forked with a pipe each way; it dies with its parent.
#include "Child.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace NQS::OS::test {

using android::base::Pipe;
using android::base::unique_fd;

namespace {

void waitForByte(const unique_fd& fd) {
    char byte;
    if (TEMP_FAILURE_RETRY(read(fd.get(), &byte, 1)) != 1) abort();
}

void sendByte(const unique_fd& fd) {
    if (TEMP_FAILURE_RETRY(write(fd.get(), "x", 1)) != 1) abort();
}

}  // namespace

Child::Child(const std::function<void()>& prepare) {
    unique_fd reading;
    unique_fd writing;
    if (!Pipe(&reading, &writing)) abort();
    mPid = fork();
    if (mPid < 0) abort();
    if (mPid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        prepare();
        sendByte(writing);
        while (true)
            pause();
    }
    waitForByte(reading);
}

Child::Child(const std::string& argument0) {
    unique_fd input;
    unique_fd toInput;
    unique_fd output;
    unique_fd toOutput;
    if (!Pipe(&input, &toInput) || !Pipe(&output, &toOutput)) abort();
    mPid = fork();
    if (mPid < 0) abort();
    if (mPid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(input.get(), STDIN_FILENO);
        dup2(toOutput.get(), STDOUT_FILENO);
        execl("/bin/cat", argument0.c_str(), "-", static_cast<char*>(nullptr));
        _exit(EXIT_FAILURE);
    }
    sendByte(toInput);
    waitForByte(output);
    mInput = std::move(toInput);
}

Child::~Child() {
    if (!mReaped) reap();
}

void Child::kill() const {
    ::kill(mPid, SIGKILL);
    siginfo_t info;
    if (TEMP_FAILURE_RETRY(waitid(P_PID, static_cast<id_t>(mPid), &info, WEXITED | WNOWAIT)) != 0) {
        abort();
    }
}

void Child::reap() {
    ::kill(mPid, SIGKILL);
    if (TEMP_FAILURE_RETRY(waitpid(mPid, nullptr, 0)) != mPid) abort();
    mReaped = true;
}

}  // namespace NQS::OS::test
