// SPDX-License-Identifier: Apache-2.0
//
// Tables and counters of the process.
#include "ProcessInternals.h"

#include <log/log.h>

namespace android {

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
    std::lock_guard lock(mLock);
    mMaximum = maximum;
}

void PoolWatch::joined() {
    std::lock_guard lock(mLock);
    mThreads++;
}

void PoolWatch::left() {
    std::lock_guard lock(mLock);
    mThreads--;
}

void PoolWatch::workBegins() {
    std::lock_guard lock(mLock);
    mBusy++;
    // While the driver may still ask for another thread the pool is not exhausted.
    if (mBusy < mThreads || mThreads <= mMaximum || mStarving) return;
    mStarving = true;
    mStarvingSince = Clock::now();
}

void PoolWatch::workEnds() {
    size_t threads = 0;
    Clock::duration starved{};
    {
        std::lock_guard lock(mLock);
        mBusy--;
        if (!mStarving) return;
        mStarving = false;
        threads = mThreads;
        starved = Clock::now() - mStarvingSince;
    }
    if (starved <= kStarvation) return;
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(starved);
    ALOGE("binder thread pool (%zu threads) starved for %lld ms", threads,
          static_cast<long long>(passed.count()));
}

void DeferredWork::add(std::function<void()> work) {
    std::lock_guard lock(mLock);
    mWork.push_back(std::move(work));
    mAny.store(true, std::memory_order_release);
}

std::vector<std::function<void()>> DeferredWork::take() {
    if (!mAny.load(std::memory_order_acquire)) return {};
    std::lock_guard lock(mLock);
    mAny.store(false, std::memory_order_relaxed);
    return std::exchange(mWork, {});
}

}  // namespace android
