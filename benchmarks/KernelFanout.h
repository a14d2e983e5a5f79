// SPDX-License-Identifier: Apache-2.0
//
// One-way calls to N listener processes over a kernel's binder device: an empty call to each,
// until the last of them has it.
#pragma once

#include <binder/IBinder.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <vector>

#include "KernelCalls.h"
#include "RawBinder.h"

/** A counter that processes share: listeners count down, the last one wakes who waits. */
class KernelCountdown {
public:
    KernelCountdown();
    ~KernelCountdown();
    KernelCountdown(const KernelCountdown&) = delete;
    KernelCountdown& operator=(const KernelCountdown&) = delete;

    void start(uint32_t count) { mLeft->store(count); }
    void hit();
    void wait();

private:
    std::atomic<uint32_t>* mLeft;
};

/** By bare ioctl. The caller becomes the context manager, with which listeners register. */
class RawFanout {
public:
    RawFanout(const char* device, uint32_t listeners);
    ~RawFanout();
    RawFanout(const RawFanout&) = delete;
    RawFanout& operator=(const RawFanout&) = delete;

    /** Tells the first `count`; batched: all calls in one exchange, else one in each. */
    void tell(uint32_t count, bool batched);

private:
    void complete(uint32_t calls);

    KernelCountdown mCountdown;
    RawBinder mSender;
    std::vector<pid_t> mListeners;
    std::vector<uint32_t> mHandles;
};

/** Through the runtime; listeners are objects that register with the server of RuntimeCalls. */
class RuntimeFanout {
public:
    /** Starts the listeners; before the first use of binder by the caller. */
    RuntimeFanout(const RuntimeCalls& calls, uint32_t listeners);
    ~RuntimeFanout();
    RuntimeFanout(const RuntimeFanout&) = delete;
    RuntimeFanout& operator=(const RuntimeFanout&) = delete;

    /** Tells the first `count`. */
    void tell(uint32_t count);

private:
    void takeListeners();

    const RuntimeCalls& mCalls;
    KernelCountdown mCountdown;
    std::vector<pid_t> mListeners;
    std::vector<android::sp<android::IBinder>> mProxies;
};
