// SPDX-License-Identifier: Apache-2.0
// What a session prints for people.
#include "session/Timeline.h"

#include <limits.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace sim {
namespace {

const char* const kBold = "\033[1m";
const char* const kDim = "\033[2m";
const char* const kRed = "\033[31m";
const char* const kReset = "\033[0m";

}  // namespace

bool Timeline::wantsColours(FILE* out) {
    const char* terminal = getenv("TERM");
    return isatty(fileno(out)) == 1 && getenv("NO_COLOR") == nullptr && terminal != nullptr &&
           std::strcmp(terminal, "dumb") != 0;
}

void Timeline::line(const std::string& text) {
    write(mOut, text + "\n");
}

void Timeline::write(FILE* to, const std::string& text) {
    // As much at a time as a pipe that is ready takes without blocking.
    for (size_t at = 0; at < text.size(); at += PIPE_BUF) {
        if (mStops != nullptr) mStops->awaitWritable(fileno(to));
        std::fwrite(text.data() + at, 1, std::min<size_t>(PIPE_BUF, text.size() - at), to);
        std::fflush(to);
    }
}

void Timeline::title(const std::string& text) {
    line(styled(kBold, text));
}

void Timeline::remark(const std::string& text) {
    line(styled(kDim, "    # " + text));
}

void Timeline::complaint(const std::string& text) {
    line(styled(kRed, "!") + " " + text);
}

void Timeline::failure(const std::string& text) {
    error("\n" + styled(kRed, "FAILED") + "  " + text + "\n");
}

void Timeline::error(const std::string& text) {
    write(stderr, text);
}

void Timeline::stopped(int signal) {
    pollfd errors{STDERR_FILENO, POLLOUT, 0};
    if (poll(&errors, 1, /*timeout=*/0) <= 0) return;
    std::fprintf(stderr, "\nstopped by signal %d\n", signal);
}

std::string Timeline::styled(const char* style, const std::string& text) const {
    return mColours ? style + text + kReset : text;
}

}  // namespace sim
