// SPDX-License-Identifier: Apache-2.0
#include "FollowedTool.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/syscall.h>
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
    mChild.emplace([&] {
        if (dup2(output.get(), STDOUT_FILENO) < 0) return 127;
        execl(PROGRAMS "/telemetry", "telemetry", "--follow", "--json", path.c_str(), nullptr);
        return 127;
    });
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
    const unique_fd process(static_cast<int>(syscall(SYS_pidfd_open, mChild->pid(), 0)));
    if (!process.ok()) abort();
    if (!isReady(process.get())) return std::nullopt;
    return mChild->wait();
}

}  // namespace hosttelemetry::test
