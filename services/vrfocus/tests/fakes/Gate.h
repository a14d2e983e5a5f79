// SPDX-License-Identifier: Apache-2.0
//
// Gate: stops one thread at a known point of its way until the test lets it go on.
//
// Usage:
//
//      Gate gate;
//      listener->onCalled = [&] { gate.pass(); };
//      WatchedCall notice([&] {
//          gate.stopThisThread();
//          tracker->windowFocusCallback();
//      });
//      ASSERT_TRUE(gate.awaitArrival());
//      ...
//      gate.open();
//
// All other threads pass. A gate that nobody opens gives up after the patience of Signal.
#pragma once

#include <atomic>
#include <thread>

#include "Signal.h"

namespace NQS::OS {

class Gate {
public:
    /** Stops the thread's arrival of that number, counted from 1. */
    explicit Gate(int number = 1) : mNumber(number) {}

    void stopThisThread() { mThread = std::this_thread::get_id(); }
    void pass() {
        if (mThread.load() != std::this_thread::get_id() || ++mArrivals != mNumber) return;
        mArrived.raise();
        (void)mOpened.await();
    }
    [[nodiscard]] bool awaitArrival() { return mArrived.await(); }
    void open() { mOpened.raise(); }

private:
    const int mNumber;
    std::atomic<std::thread::id> mThread;
    /** Of the one thread, and counted by it alone. */
    int mArrivals = 0;
    Signal mArrived;
    Signal mOpened;
};

}  // namespace NQS::OS
