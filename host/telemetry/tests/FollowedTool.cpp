// SPDX-License-Identifier: Apache-2.0
#include "FollowedTool.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace hosttelemetry::test {

using android::base::unique_fd;

namespace {

constexpr int kDeadlineMs = 30'000;

bool isReady(int fd) {
    pollfd waited{.fd = fd, .events = POLLIN, .revents = 0};
    return TEMP_FAILURE_RETRY(poll(&waited, 1, kDeadlineMs)) == 1;
}

}  // namespace

FollowedTool::FollowedTool(const std::string& path) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) abort();
    mOutput.reset(ends[0]);
    unique_fd output(ends[1]);
    const pid_t parent = getpid();
    mPid = fork();
    if (mPid < 0) abort();
    if (mPid > 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent || dup2(output.get(), STDOUT_FILENO) < 0) _exit(127);
    execl(PROGRAMS "/telemetry", "telemetry", "--follow", "--json", path.c_str(), nullptr);
    _exit(127);
}

FollowedTool::~FollowedTool() {
    if (mPid == 0) return;
    kill(mPid, SIGKILL);
    (void)TEMP_FAILURE_RETRY(waitpid(mPid, nullptr, 0));
}

std::optional<std::string> FollowedTool::nextLine() {
    for (;;) {
        const size_t end = mText.find('\n');
        if (end != std::string::npos) {
            std::string line = mText.substr(0, end);
            mText.erase(0, end + 1);
            return line;
        }
        std::array<char, 4096> piece;
        if (!isReady(mOutput.get())) return std::nullopt;
        const ssize_t length = TEMP_FAILURE_RETRY(read(mOutput.get(), piece.data(), piece.size()));
        if (length <= 0) return std::nullopt;
        mText.append(piece.data(), static_cast<size_t>(length));
    }
}

std::optional<int> FollowedTool::wait() {
    const unique_fd process(static_cast<int>(syscall(SYS_pidfd_open, mPid, 0)));
    if (!process.ok()) abort();
    if (!isReady(process.get())) return std::nullopt;
    int status = 0;
    if (TEMP_FAILURE_RETRY(waitpid(mPid, &status, 0)) != mPid) abort();
    mPid = 0;
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace hosttelemetry::test
