// SPDX-License-Identifier: Apache-2.0
//
// FanoutRound: one message to many processes, timed in memory that all of them share.
//
//      sender     begins ── a message to each ── done
//      listeners           │    │    │    has it (last one)
//                 ◀──────── held ───────▶
//                 ◀────────── reached ─────▶
//                 ◀────────────── total ─────────▶ the waiting process has woken up
//
// All clocks are CLOCK_MONOTONIC, which processes of one machine share.
#pragma once

#include <atomic>
#include <cstdint>

/**
 * Made before the processes that take part are forked, and never unmapped. One process prepares and
 * waits, one sends, any number listen; the first two may be the same.
 */
class FanoutRound {
public:
    /** Maps it. Ends the benchmark on failure. */
    static FanoutRound* map();

    /** Before the sender is asked to begin: how many listeners are to be told. */
    void prepare(uint32_t listeners);
    /** Sender: right before the first message. */
    void begin();
    /** Sender: it is free to do something else. */
    void sent();
    /** Listener: it has read its message. */
    void received();

    /**
     * Until the sender is free and the last listener has its message. False when that has not
     * happened for 30 seconds: a message got lost, or a process did.
     */
    [[nodiscard]] bool wait();

    // In seconds, after a wait that succeeded.

    /** Until the process that waits knows it all. */
    [[nodiscard]] double total() const;
    /** Until the last listener had its message. */
    [[nodiscard]] double reached() const;
    /** Until the sender was free. */
    [[nodiscard]] double held() const;

private:
    FanoutRound() = default;
    void finishPart();

    alignas(64) std::atomic<uint32_t> mListenersLeft{0};
    /** The sender's part and the listeners': a futex. */
    alignas(64) std::atomic<uint32_t> mPartsLeft{0};
    /** Nanoseconds; each written by one process before it takes its part off. */
    int64_t mBegin = 0;
    int64_t mSent = 0;
    int64_t mReceived = 0;
    int64_t mEnd = 0;
};
