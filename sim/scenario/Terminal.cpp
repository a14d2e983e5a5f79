// SPDX-License-Identifier: Apache-2.0
// The terminal that a person sits at.
#include "scenario/Terminal.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "session/SessionError.h"

namespace sim::scenario {
namespace {

using android::base::unique_fd;

/** A terminal opened anew, so that its modes of access are nobody else's. */
unique_fd openAnew(int terminal, int access) {
    const int flags = access | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    // May be opened by everybody who sits there, whoever owns the terminal.
    const bool isControlling = tcgetsid(terminal) == getsid(0);
    unique_fd anew(isControlling ? open("/dev/tty", flags) : -1);
    if (!anew.ok()) anew.reset(open(("/proc/self/fd/" + std::to_string(terminal)).c_str(), flags));
    if (!anew.ok()) anew.reset(fcntl(terminal, F_DUPFD_CLOEXEC, 0));
    return anew;
}

FILE* streamTo(Terminal* terminal, cookie_write_function_t* write) {
    return fopencookie(terminal, "w", {nullptr, write, nullptr, nullptr});
}

}  // namespace

Terminal::Terminal(StopSignals& stops)
      : mStops(stops),
        mKeys(openAnew(STDIN_FILENO, O_RDONLY)),
        mScreenFd(openAnew(STDOUT_FILENO, O_WRONLY)),
        mScreen(streamTo(this, &Terminal::writeTo), std::fclose) {
    if (!mKeys.ok() || !mScreenFd.ok() || mScreen == nullptr) {
        throw SessionError("this terminal cannot be used");
    }
}

std::optional<size_t> Terminal::readByte(char* out) {
    const ssize_t size = read(mKeys.get(), out, 1);
    if (size >= 0) return static_cast<size_t>(size);
    if (errno == EAGAIN || errno == EINTR) return {};
    return 0;
}

ssize_t Terminal::writeTo(void* self, const char* text, size_t size) {
    const Terminal& terminal = *static_cast<Terminal*>(self);
    std::string_view rest(text, size);
    while (!rest.empty()) {
        std::array<pollfd, 2> watched{pollfd{terminal.mScreenFd.get(), POLLOUT, 0},
                                      pollfd{terminal.mStops.endingsFd(), POLLIN, 0}};
        const int timeout = terminal.mStops.hasEnding() ? 0 : -1;
        if (TEMP_FAILURE_RETRY(poll(watched.data(), watched.size(), timeout)) == 0) break;
        if (watched[0].revents != 0) {
            const ssize_t written = write(terminal.mScreenFd.get(), rest.data(), rest.size());
            if (written < 0 && errno != EAGAIN && errno != EINTR) break;
            rest.remove_prefix(static_cast<size_t>(std::max<ssize_t>(written, 0)));
            if (written > 0) continue;
        }
        if (watched[1].revents != 0) break;
    }
    return static_cast<ssize_t>(size);
}

}  // namespace sim::scenario
