// SPDX-License-Identifier: Apache-2.0
#include "hub/Closing.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <thread>

#include "hub/Report.h"

namespace binderhost::hub {
namespace {

void closeWhatComes(int from) {
    for (;;) {
        int fd = -1;
        const ssize_t got = read(from, &fd, sizeof(fd));
        if (got == sizeof(fd)) {
            close(fd);
        } else if (got >= 0 || errno != EINTR) {
            return;
        }
    }
}

/** The writing end of the pipe to the closing thread, which is started with it. */
int closingPipe() {
    static const int pipeEnd = [] {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) || fcntl(ends[1], F_SETFL, O_NONBLOCK)) {
            std::fprintf(stderr, "binderhub: no pipe to close descriptors through: %m\n");
            return -1;
        }
        try {
            std::thread(closeWhatComes, ends[0]).detach();
        } catch (const std::system_error& problem) {
            std::fprintf(stderr, "binderhub: no thread to close descriptors: %s\n", problem.what());
        }
        return ends[1];
    }();
    return pipeEnd;
}

}  // namespace

void PassedCloser::Close(int fd) {
    // Pipes and memory files, which is what honest programs pass.
    if (fcntl(fd, F_GETPIPE_SZ) >= 0 || fcntl(fd, F_GET_SEALS) >= 0) {
        close(fd);
    } else if (write(closingPipe(), &fd, sizeof(fd)) != sizeof(fd)) {
        // It stays open: a descriptor less is better than a hub that waits.
        report("descriptor %d cannot be closed now", fd);
    }
}

}  // namespace binderhost::hub
