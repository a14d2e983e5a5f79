// SPDX-License-Identifier: Apache-2.0
//
// Tables and counters of the process.
#include "ProcessInternals.h"

#include <log/log.h>
#include <time.h>

namespace android {
namespace {

/** Monotonic, as exact as the kernel's tick: costs a fraction of the exact one. Never 0. */
int64_t coarseNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec + 1;
}

}  // namespace

sp<BpBinder> ProxyTable::findOrMake(int32_t handle, const std::function<sp<BpBinder>()>& make,
                                    bool* outMade) {
    std::unique_lock lock(mLock);
    *outMade = false;
    for (;;) {
        const auto found = mProxies.find(handle);
        if (found == mProxies.end()) break;
        if (sp<BpBinder> proxy = found->second.promote(); proxy != nullptr) return proxy;
        mErased.wait(lock);
    }
    sp<BpBinder> proxy = make();
    mProxies.emplace(handle, proxy);
    *outMade = true;
    return proxy;
}

bool ProxyTable::contains(int32_t handle) {
    std::lock_guard lock(mLock);
    return mProxies.contains(handle);
}

void ProxyTable::erase(int32_t handle, const BpBinder* proxy) {
    {
        std::lock_guard lock(mLock);
        const auto found = mProxies.find(handle);
        if (found == mProxies.end() || found->second.unsafe_get() != proxy) return;
        mProxies.erase(found);
    }
    mErased.notify_all();
}

uint64_t DeathTable::add(BpBinder* proxy) {
    std::lock_guard lock(mLock);
    const uint64_t cookie = mNextCookie++;
    mRequests.emplace(cookie, proxy);
    return cookie;
}

sp<BpBinder> DeathTable::find(uint64_t cookie) {
    std::lock_guard lock(mLock);
    const auto found = mRequests.find(cookie);
    return found == mRequests.end() ? nullptr : found->second.promote();
}

void DeathTable::erase(uint64_t cookie) {
    std::lock_guard lock(mLock);
    mRequests.erase(cookie);
}

void PoolWatch::setMaximum(size_t maximum) {
    mMaximum.store(maximum);
}

void PoolWatch::joined() {
    mThreads.fetch_add(1);
}

void PoolWatch::left() {
    mThreads.fetch_sub(1);
}

void PoolWatch::workBegins() {
    const size_t busy = mBusy.fetch_add(1) + 1;
    const size_t threads = mThreads.load();
    // While the driver may still ask for another thread the pool is not exhausted.
    if (busy < threads || threads <= mMaximum.load()) return;
    int64_t notStarving = 0;
    if (!mStarvingSince.compare_exchange_strong(notStarving, coarseNow())) return;
    // A thread that has become free meanwhile may not have seen what it was to take back.
    if (mBusy.load() < threads) mStarvingSince.store(0);
}

void PoolWatch::workEnds() {
    mBusy.fetch_sub(1);
    if (mStarvingSince.load() == 0) return;
    const int64_t since = mStarvingSince.exchange(0);
    if (since == 0) return;
    const std::chrono::nanoseconds starved(coarseNow() - since);
    if (starved <= kStarvation) return;
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(starved);
    ALOGE("binder thread pool (%zu threads) starved for %lld ms", mThreads.load(),
          static_cast<long long>(passed.count()));
}

void DeferredWork::add(std::function<void()> work) {
    std::lock_guard lock(mLock);
    mWork.push_back(std::move(work));
    mAny.store(true, std::memory_order_release);
}

std::vector<std::function<void()>> DeferredWork::take() {
    if (!any()) return {};
    std::lock_guard lock(mLock);
    mAny.store(false, std::memory_order_relaxed);
    return std::exchange(mWork, {});
}

}  // namespace android
