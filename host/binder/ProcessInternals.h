// SPDX-License-Identifier: Apache-2.0
//
// What the runtime's files share behind ProcessState.
//
// Lock order: BpBinder::mLock before any lock here; these are leaves, never held together, and
// nothing of a user's runs under them.
#pragma once

#include <android-base/thread_annotations.h>
#include <binder/Binder.h>
#include <binder/BpBinder.h>
#include <binder/ProcessState.h>
#include <driver/Driver.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace android {

/**
 * Proxies by handle: at most one that is alive.
 *
 * A proxy stands here until its destructor has queued the return of the driver's reference, so
 * whoever meets a dying one waits for it to be gone, and requests of the next proxy for the same
 * handle come behind those of the last.
 */
class ProxyTable {
public:
    /** The proxy of a handle; make() is called, under the lock, when there is none. */
    // Analysed without the annotations: waiting needs a unique_lock, which they do not follow.
    sp<BpBinder> findOrMake(int32_t handle, const std::function<sp<BpBinder>()>& make,
                            bool* outMade) NO_THREAD_SAFETY_ANALYSIS;
    [[nodiscard]] bool contains(int32_t handle);
    void erase(int32_t handle, const BpBinder* proxy);

private:
    std::mutex mLock;
    std::condition_variable mErased;
    std::unordered_map<int32_t, wp<BpBinder>> mProxies GUARDED_BY(mLock);
};

/** Standing requests for death notices: the driver's cookie to the proxy that asked. */
class DeathTable {
public:
    [[nodiscard]] uint64_t add(BpBinder* proxy);
    [[nodiscard]] sp<BpBinder> find(uint64_t cookie);
    void erase(uint64_t cookie);

private:
    std::mutex mLock;
    uint64_t mNextCookie GUARDED_BY(mLock) = 1;
    std::unordered_map<uint64_t, wp<BpBinder>> mRequests GUARDED_BY(mLock);
};

/**
 * Counts the pool's threads and reports when all have been busy for long.
 *
 * Without a lock, since every call passes here. What may be reported late or twice, when several
 * threads begin and end at once, is a matter of a log line.
 */
class PoolWatch {
public:
    static constexpr std::chrono::milliseconds kStarvation{100};

    void setMaximum(size_t maximum);
    void joined();
    void left();
    void workBegins();
    void workEnds();

private:
    std::atomic<size_t> mMaximum{0};
    std::atomic<size_t> mThreads{0};
    std::atomic<size_t> mBusy{0};
    /** Nanoseconds of the clock; 0 while a thread is free. */
    std::atomic<int64_t> mStarvingSince{0};
};

/**
 * Work that a thread has met but must not do where it stands, for the next thread of the pool that
 * is about to wait: death notices, and references whose return may run a destructor.
 */
class DeferredWork {
public:
    void add(std::function<void()> work);
    [[nodiscard]] bool any() const { return mAny.load(std::memory_order_acquire); }
    [[nodiscard]] std::vector<std::function<void()>> take();

private:
    std::mutex mLock;
    std::vector<std::function<void()>> mWork GUARDED_BY(mLock);
    std::atomic<bool> mAny{false};
};

struct ProcessState::Internals {
    static constexpr size_t kDefaultMaxThreads = 15;

    explicit Internals(std::unique_ptr<binderhost::Driver> opened) : driver(std::move(opened)) {}

    const std::unique_ptr<binderhost::Driver> driver;
    ProxyTable proxies;
    DeathTable deaths;
    PoolWatch pool;
    DeferredWork deferred;
    std::atomic<bool> poolStarted{false};
    std::atomic<int> nextThread{1};

    /** Set once, before the process becomes the context manager. */
    sp<BBinder> contextObject;
};

}  // namespace android
