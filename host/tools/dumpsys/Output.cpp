// SPDX-License-Identifier: Apache-2.0
//
// Output.
#include "Output.h"

#include <errno.h>
#include <poll.h>
#include <unistd.h>

namespace tools {

bool Output::write(std::string_view bytes) {
    while (mError == 0 && !bytes.empty()) {
        const ssize_t written = ::write(mFd, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(size_t(written));
        } else if (errno == EAGAIN) {
            pollfd ready{.fd = mFd, .events = POLLOUT, .revents = 0};
            if (poll(&ready, 1, /*timeout=*/-1) < 0 && errno != EINTR) mError = errno;
        } else if (errno != EINTR) {
            mError = errno;
        }
    }
    return mError == 0;
}

}  // namespace tools
