// SPDX-License-Identifier: Apache-2.0
//
// The observers that other processes registered with a simulated service.
//
// An observer stays until it is removed or its process dies. Registering the same one again
// replaces its event mask.
//
// Threads: any. mMutex guards the entries; no outgoing call is made under it. Notices keep their
// order as long as one thread sends them.
#pragma once

#include <android-base/thread_annotations.h>
#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <sys/types.h>
#include <utils/StrongPointer.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace sim {

template <typename Interface>
class ObserverList {
public:
    struct Observer {
        android::sp<Interface> remote;
        pid_t pid = 0;  // of the process that registered it
        int64_t mask = -1;
    };

    /** Null observers are not kept. */
    void put(const Observer& observer) {
        if (observer.remote == nullptr) return;
        if (mShared->put(observer)) {
            // One that is dead already is told so at once, and leaves again.
            const android::sp<android::IBinder> binder =
                    android::IInterface::asBinder(observer.remote);
            if (binder->linkToDeath(mRecipient, nullptr, 0) != android::OK) {
                mShared->remove(binder);
            }
        }
    }

    void remove(const android::sp<Interface>& observer) {
        if (observer != nullptr) mShared->remove(android::IInterface::asBinder(observer));
    }

    [[nodiscard]] std::vector<Observer> all() const { return mShared->all(); }

    [[nodiscard]] bool await(pid_t pid, std::chrono::milliseconds timeout) {
        return mShared->await(pid, timeout);
    }

private:
    class Shared {
    public:
        bool put(const Observer& observer) {
            std::lock_guard lock(mMutex);
            const auto known =
                    std::find_if(mEntries.begin(), mEntries.end(), [&](const Observer& entry) {
                        return sameBinder(entry, android::IInterface::asBinder(observer.remote));
                    });
            if (known != mEntries.end()) {
                known->mask = observer.mask;
                return false;
            }
            mEntries.push_back(observer);
            mChanged.notify_all();
            return true;
        }

        void remove(const android::sp<android::IBinder>& binder) {
            std::lock_guard lock(mMutex);
            std::erase_if(mEntries,
                          [&](const Observer& entry) { return sameBinder(entry, binder); });
        }

        std::vector<Observer> all() const {
            std::lock_guard lock(mMutex);
            return mEntries;
        }

        // The wait lets go of the mutex through a lock type that the analysis does not follow.
        bool await(pid_t pid, std::chrono::milliseconds timeout) NO_THREAD_SAFETY_ANALYSIS {
            std::unique_lock lock(mMutex);
            return mChanged.wait_for(lock, timeout, [&]() NO_THREAD_SAFETY_ANALYSIS {
                return std::any_of(mEntries.begin(), mEntries.end(),
                                   [&](const Observer& entry) { return entry.pid == pid; });
            });
        }

    private:
        static bool sameBinder(const Observer& entry, const android::sp<android::IBinder>& binder) {
            return android::IInterface::asBinder(entry.remote) == binder;
        }

        mutable std::mutex mMutex;
        std::condition_variable mChanged;
        std::vector<Observer> mEntries GUARDED_BY(mMutex);
    };

    /** Shares the entries, since a death may be told while the list is going away. */
    class Recipient : public android::IBinder::DeathRecipient {
    public:
        explicit Recipient(std::shared_ptr<Shared> shared) : mShared(std::move(shared)) {}
        void binderDied(const android::wp<android::IBinder>& who) override {
            mShared->remove(who.promote());
        }

    private:
        const std::shared_ptr<Shared> mShared;
    };

    const std::shared_ptr<Shared> mShared = std::make_shared<Shared>();
    const android::sp<Recipient> mRecipient{new Recipient(mShared)};
};

}  // namespace sim
