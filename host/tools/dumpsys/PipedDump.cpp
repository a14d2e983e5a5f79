// SPDX-License-Identifier: Apache-2.0
//
// Piped dump.
#include "PipedDump.h"

#include <android-base/unique_fd.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <limits>
#include <memory>
#include <system_error>
#include <thread>

namespace tools {

using android::status_t;
using android::base::unique_fd;
using std::chrono::ceil;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using End = PipedDumpResult::End;

namespace {

/** What one read takes at most: the size of a pipe. */
constexpr size_t kChunkSize = 64 * 1024;

int timeLeft(steady_clock::time_point deadline) {
    const auto left = ceil<milliseconds>(deadline - steady_clock::now()).count();
    return int(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
}

/** Until the end of the pipe, of the output or of the time. */
End copy(int from, Output& output, steady_clock::time_point deadline) {
    const auto chunk = std::make_unique<std::array<char, kChunkSize>>();
    for (;;) {
        // Looked at first: a service that never stops writing never lets poll() wait.
        const int left = timeLeft(deadline);
        if (left == 0) return End::TimedOut;
        pollfd readable{.fd = from, .events = POLLIN, .revents = 0};
        if (poll(&readable, 1, left) <= 0) continue;
        const ssize_t size = read(from, chunk->data(), chunk->size());
        if (size == 0) return End::Complete;
        if (size < 0) continue;
        const auto before = steady_clock::now();
        if (!output.write({chunk->data(), size_t(size)})) return End::OutputFailed;
        deadline += steady_clock::now() - before;
    }
}

}  // namespace

PipedDumpResult runPipedDump(DumpProducer produce, milliseconds timeout, Output& output) {
    const auto start = steady_clock::now();
    unique_fd readEnd;
    unique_fd writeEnd;
    if (!android::base::Pipe(&readEnd, &writeEnd, O_CLOEXEC)) return {.status = -errno};

    const auto status = std::make_shared<std::atomic<status_t>>(android::OK);
    std::thread caller;
    try {
        caller = std::thread(
                [produce = std::move(produce), status, fd = std::move(writeEnd)]() mutable {
                    status->store(produce(fd.get()));
                    // Whoever sees the end of the pipe may rely on the call and what it held being
                    // over.
                    produce = nullptr;
                    fd.reset();
                });
    } catch (const std::system_error& error) {
        return {.status = -error.code().value()};
    }

    PipedDumpResult result;
    result.end = copy(readEnd.get(), output, start + timeout);
    result.elapsed = steady_clock::now() - start;
    if (result.end == End::Complete) {
        caller.join();
        result.status = status->load();
    } else {
        caller.detach();
    }
    return result;
}

}  // namespace tools
