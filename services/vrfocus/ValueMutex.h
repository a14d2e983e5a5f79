// SPDX-License-Identifier: Apache-2.0
//
// Value with a mutex: a value that can be touched under its own lock only.
//
// Usage:
//
//      ValueMutexBase<std::set<int>> ids;
//      const bool isNew = ids.access([&](std::set<int>& set) { return set.insert(3).second; });
#pragma once

#include <android-base/thread_annotations.h>
#include <mutex>
#include <utility>

namespace NQS::OS {

template <typename T, typename Mutex = std::mutex>
class ValueMutexBase {
public:
    ValueMutexBase() = default;
    ValueMutexBase(const ValueMutexBase&) = delete;
    ValueMutexBase& operator=(const ValueMutexBase&) = delete;

    /**
     * Runs the function on the value with the mutex held and returns its result by value, so that
     * no reference into the value gets out. The function must not access the same value again.
     */
    template <typename Function>
    auto access(Function&& function) EXCLUDES(mMutex) {
        const std::lock_guard<Mutex> lock(mMutex);
        return std::forward<Function>(function)(mValue);
    }

    template <typename Function>
    auto access(Function&& function) const EXCLUDES(mMutex) {
        const std::lock_guard<Mutex> lock(mMutex);
        return std::forward<Function>(function)(mValue);
    }

private:
    mutable Mutex mMutex;
    T mValue GUARDED_BY(mMutex){};
};

}  // namespace NQS::OS
