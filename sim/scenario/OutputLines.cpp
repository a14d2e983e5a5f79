// SPDX-License-Identifier: Apache-2.0
// Lines to a program that may read slowly, or go away.
#include "scenario/OutputLines.h"

#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "session/SessionError.h"

namespace sim::scenario {

namespace {

[[noreturn]] void fail(int error) {
    // As pipes, sockets and terminals say it.
    const bool isGone = error == EPIPE || error == ECONNRESET || error == EIO;
    if (isGone) throw SessionStopped(SIGPIPE);
    throw SessionError(std::string("the standard output cannot be written: ") + strerror(error));
}

}  // namespace

void OutputLines::write(const std::string& line) {
    const std::string text = line + "\n";
    std::string_view rest(text);
    while (!rest.empty()) {
        mStops.awaitWritable(mFd);
        // As much as a pipe that is ready takes without blocking.
        const ssize_t size = ::write(mFd, rest.data(), std::min<size_t>(rest.size(), PIPE_BUF));
        if (size < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (size < 0) fail(errno);
        rest.remove_prefix(static_cast<size_t>(size));
    }
}

}  // namespace sim::scenario
