// SPDX-License-Identifier: Apache-2.0
// Lines from a program or a file, of any length and content.
#include "scenario/InputLines.h"

#include <poll.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "scenario/Words.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

constexpr size_t kReadSize = 16 * 1024;
constexpr size_t kKept = kLongestLine + 1;

}  // namespace

std::optional<std::string> InputLines::next(const News& news) {
    std::string line;
    while (true) {
        const size_t end = mBytes.find('\n', mTaken);
        const size_t stop = std::min(end, mBytes.size());
        line.append(mBytes, mTaken, std::min(stop - mTaken, kKept - line.size()));
        mTaken = stop;
        if (end == std::string::npos && !mEnded) {
            await(news);
            continue;
        }
        if (end == std::string::npos && line.empty()) return {};
        if (end != std::string::npos) ++mTaken;
        if (std::exchange(mIsFirst, false)) line = std::string(withoutByteOrderMark(line));
        return line;
    }
}

void InputLines::await(const News& news) {
    while (true) {
        std::vector<pollfd> watched{{mFd, POLLIN, 0}, {mStops.fd(), POLLIN, 0}, {mReaderFd, 0, 0}};
        for (const int fd : news.fds())
            watched.push_back({fd, POLLIN, 0});
        TEMP_FAILURE_RETRY(poll(watched.data(), watched.size(), /*timeout=*/-1));
        if (watched[1].revents != 0) throw SessionStopped(mStops.take());
        if (watched[0].revents != 0) break;
        if (watched[2].revents != 0) throw SessionStopped(SIGPIPE);
        news.tell();
    }
    readMore();
}

void InputLines::readMore() {
    mBytes.resize(kReadSize);
    mTaken = 0;
    const ssize_t size = TEMP_FAILURE_RETRY(read(mFd, mBytes.data(), mBytes.size()));
    if (size < 0 && errno != EAGAIN) {
        throw SessionError(std::string("the standard input cannot be read: ") + strerror(errno));
    }
    mEnded = size == 0;
    mBytes.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
}

}  // namespace sim::scenario
