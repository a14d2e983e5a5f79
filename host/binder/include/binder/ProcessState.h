// SPDX-License-Identifier: Apache-2.0
//
// What the threads of a process share: the driver, the table of proxies and the thread pool.
#pragma once

#include <binder/IBinder.h>
#include <utils/String8.h>

#include <cstddef>
#include <memory>

namespace android {

class ProcessState : public virtual RefBase {
public:
    /**
     * The process's one instance; the first call opens the driver. When it cannot be opened, the
     * driver's message is printed on stderr and the process ends with status 1.
     */
    static sp<ProcessState> self();
    /** Null when no thread has called self() yet. */
    static sp<ProcessState> selfOrNull();
    /** As self(), at another device or socket. Must be the first call of either. */
    static sp<ProcessState> initWithDriver(const char* path);

    /** The context manager (handle 0), or null when there is none. */
    sp<IBinder> getContextObject(const sp<IBinder>& caller);

    /** Starts the first thread of the pool; the driver asks for more as they are needed. */
    void startThreadPool();
    /** How many more threads the driver may ask for (15 unless set). Before startThreadPool(). */
    status_t setThreadPoolMaxThreadCount(size_t maxThreads);
    /** Names the calling process's pool threads "binder:PID_N"; called by them. */
    void giveThreadPoolName();
    /** isMain: the pool's own; otherwise one that the driver asked for. */
    void spawnPooledThread(bool isMain);

    /**
     * Makes this process the context manager. False, with a log line and errno set, when another
     * one is (EBUSY) or this user may not be (EPERM).
     */
    bool becomeContextManager();

    /** The proxy of a handle, made when there is none. Null when the handle names nothing. */
    sp<IBinder> getStrongProxyForHandle(int32_t handle);

    String8 getDriverName();

    // NOLINTNEXTLINE: what the runtime's own files share; no user of the library needs it.
    struct Internals;
    Internals& internals() { return *mInternals; }

private:
    explicit ProcessState(std::unique_ptr<Internals> internals);
    ~ProcessState() override;

    const std::unique_ptr<Internals> mInternals;
};

}  // namespace android
