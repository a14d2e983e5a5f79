// SPDX-License-Identifier: Apache-2.0
//
// Program: forked and executed at once, so that a test with threads may start one.
#include "Program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <utility>

namespace servicemanager::test {

using android::base::Pipe;
using android::base::unique_fd;

namespace {

/** A guard against hanging, far beyond what anything takes. */
constexpr std::chrono::seconds kPatience(30);

/** False when nothing can be read in time. */
bool waitReadable(int fd, std::chrono::steady_clock::time_point deadline) {
    using std::chrono::milliseconds;
    const auto left =
            std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd wanted = {.fd = fd, .events = POLLIN, .revents = 0};
    return TEMP_FAILURE_RETRY(poll(&wanted, 1, static_cast<int>(left.count()))) == 1;
}

[[noreturn]] void fail(const std::string& program, const char* what) {
    fprintf(stderr, "%s: %s\n", program.c_str(), what);
    abort();
}

}  // namespace

Program::Program(const std::vector<std::string>& command) : Program(command, /*keptFd=*/-1) {}

Program::Program(const std::vector<std::string>& command, int keptFd) {
    unique_fd toOutput;
    if (!Pipe(&mOutput, &toOutput)) fail(command[0], "no pipe");
    std::vector<char*> arguments;
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    mPid = fork();
    if (mPid < 0) fail(command[0], "no process");
    if (mPid > 0) return;
    // Only calls that are safe after a fork of a process with threads.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(toOutput.get(), STDOUT_FILENO);
    dup2(toOutput.get(), STDERR_FILENO);
    if (keptFd >= 0) fcntl(keptFd, F_SETFD, 0);
    execv(arguments[0], arguments.data());
    _exit(127);
}

Program Program::ready(std::vector<std::string> command) {
    unique_fd reading;
    unique_fd writing;
    if (!Pipe(&reading, &writing)) fail(command[0], "no pipe");
    command.insert(command.end(), {"--ready-fd", std::to_string(writing.get())});
    Program program(command, writing.get());
    writing.reset();
    char byte;
    if (!waitReadable(reading.get(), std::chrono::steady_clock::now() + kPatience) ||
        TEMP_FAILURE_RETRY(read(reading.get(), &byte, 1)) != 1) {
        program.kill();
        (void)program.wait();
        fail(command[0], ("did not become ready: " + program.messages()).c_str());
    }
    return program;
}

Program::Program(Program&& other) noexcept
      : mPid(std::exchange(other.mPid, 0)),
        mOutput(std::move(other.mOutput)),
        mMessages(std::move(other.mMessages)) {}

Program::~Program() {
    kill();
}

void Program::kill() {
    if (mPid == 0) return;
    ::kill(mPid, SIGKILL);
    (void)reap();
}

int Program::wait() {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    char chunk[1024];
    while (true) {
        if (!waitReadable(mOutput.get(), deadline)) fail("wait", "a program does not end");
        const ssize_t count = TEMP_FAILURE_RETRY(read(mOutput.get(), chunk, sizeof(chunk)));
        if (count <= 0) break;
        mMessages.append(chunk, static_cast<size_t>(count));
    }
    return mPid == 0 ? -SIGKILL : reap();
}

int Program::reap() {
    int result = 0;
    if (TEMP_FAILURE_RETRY(waitpid(mPid, &result, 0)) != mPid) fail("waitpid", "no such child");
    mPid = 0;
    return WIFEXITED(result) ? WEXITSTATUS(result) : -WTERMSIG(result);
}

}  // namespace servicemanager::test
