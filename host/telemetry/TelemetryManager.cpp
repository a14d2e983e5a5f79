// SPDX-License-Identifier: Apache-2.0
//
// Telemetry manager of the host: appends each event as one line to the sink.
//
// Nothing is kept between calls, so there is nothing to lock, to inherit or to close: each call
// opens the sink, writes once and closes it. The kernel lets appending writes to a file take turns,
// whole write by whole write, which keeps the lines of any number of threads and processes apart.
// A lock among writers would not do: one that is stopped would stop the others.
//
// Telemetry may never hold up or end the process that reports. So what could block is refused (all
// but regular files), the file is bounded, and the signal of a process at its file size limit is
// taken back.
#include <dorn/TelemetryManager.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <new>
#include <string>

#include "EventLine.h"
#include "SinkLimits.h"

using namespace hosttelemetry;

namespace {

/** Closes what it holds; a sink that cannot be opened is -1. */
class Descriptor {
public:
    explicit Descriptor(int fd) : mFd(fd) {}
    ~Descriptor() {
        if (mFd >= 0) close(mFd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int get() const { return mFd; }

private:
    const int mFd;
};

/** While it lives, a write past the process's file size limit fails and raises no signal. */
class FileSizeSignalBlocked {
public:
    FileSizeSignalBlocked() {
        sigemptyset(&mSignal);
        sigaddset(&mSignal, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &mSignal, &mOldMask);
    }
    ~FileSizeSignalBlocked() {
        // A thread that had it blocked before keeps what was pending.
        if (sigismember(&mOldMask, SIGXFSZ) == 1) return;
        const timespec now{};
        while (sigtimedwait(&mSignal, nullptr, &now) > 0) {
        }
        pthread_sigmask(SIG_SETMASK, &mOldMask, nullptr);
    }
    FileSizeSignalBlocked(const FileSizeSignalBlocked&) = delete;
    FileSizeSignalBlocked& operator=(const FileSizeSignalBlocked&) = delete;

private:
    sigset_t mSignal{};
    sigset_t mOldMask{};
};

int64_t nowUs() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1'000;
}

/** 0, or the errno value of what kept the line out of the file. */
int append(const char* path, const std::string& line) {
    // Non-blocking: the opening of a pipe without a reader fails at once.
    const Descriptor sink(open(path,
                               O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                               S_IRUSR | S_IWUSR));
    if (sink.get() < 0) return errno;
    struct stat state {};
    if (fstat(sink.get(), &state) != 0) return errno;
    if (!S_ISREG(state.st_mode)) return EINVAL;
    if (state.st_size > kMaxSinkBytes - static_cast<off_t>(line.size())) return EFBIG;

    const FileSizeSignalBlocked blocked;
    const ssize_t written = write(sink.get(), line.data(), line.size());
    if (written < 0) return errno;
    // The rest found no room. The stump stays: readers know it, and the end of the file may by now
    // be another writer's.
    return static_cast<size_t>(written) == line.size() ? 0 : ENOSPC;
}

int report(int32_t eventId, const uint8_t* data, size_t size) {
    const char* const path = getenv("HOST_TELEMETRY");
    if (path == nullptr || *path == '\0') return ENOENT;
    if (size > kMaxEventBytes) return EMSGSIZE;
    if (data == nullptr && size > 0) return EINVAL;
    try {
        const std::string_view bytes(reinterpret_cast<const char*>(data), size);
        return append(path, formatEventLine(nowUs(), eventId, bytes));
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

}  // namespace

int32_t TelemetryManager_reportPlatformEvent(int32_t eventId, const uint8_t* data, size_t size) {
    const int saved = errno;
    const int result = report(eventId, data, size);
    errno = saved;
    return result;
}
