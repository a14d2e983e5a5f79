// SPDX-License-Identifier: Apache-2.0
#include "hub/Report.h"

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>

namespace binderhost::hub {
namespace {

/** More than a person reads; a session says a few in all. */
constexpr int kLinesPerSecond = 50;

/** Less than a pipe has room for when it has room at all. */
constexpr size_t kLineBytes = 512;

bool wouldWait() {
    pollfd out{STDERR_FILENO, POLLOUT, 0};
    return poll(&out, 1, /*timeout=*/0) != 1;
}

}  // namespace

void report(const char* format, ...) {
    using Clock = std::chrono::steady_clock;
    static Clock::time_point second;
    static int lines = 0;
    static unsigned leftOut = 0;

    const Clock::time_point now = Clock::now();
    if (now - second >= std::chrono::seconds(1)) {
        second = now;
        lines = 0;
    }
    if (lines >= kLinesPerSecond || wouldWait()) {
        leftOut++;
        return;
    }
    lines++;
    if (leftOut != 0) std::fprintf(stderr, "binderhub: %u lines were left out here\n", leftOut);
    leftOut = 0;
    char line[kLineBytes];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "binderhub: %s\n", line);
}

}  // namespace binderhost::hub
