// SPDX-License-Identifier: Apache-2.0
//
// Piped dump: a service's answer, for as long as one is willing to wait.
//
//      thread of its own ── produce(write end) ──▶ service ── writes ──▶ pipe
//      the caller        ◀── poll with deadline, read ────────────────── pipe ──▶ output
//
// The call into the service returns when the service likes, perhaps never; the caller only ever
// waits for the pipe. When the time is over the thread is left behind: a program that may have such
// threads ends by _exit().
#pragma once

#include <utils/Errors.h>

#include <chrono>
#include <functional>

#include "Output.h"

namespace tools {

struct PipedDumpResult {
    enum class End {
        /** All was written: produce() has returned `status` and every writer closed the pipe. */
        Complete,
        /** The pipe stayed open for longer than the timeout. */
        TimedOut,
        /** The output failed; the rest of the dump is lost. */
        OutputFailed,
        /** No pipe or no thread; `status` is the negative errno. */
        NotStarted,
    };

    End end = End::NotStarted;
    android::status_t status = android::OK;
    std::chrono::steady_clock::duration elapsed{};
};

/** Must own all that it uses: it may go on after its caller has given up. Borrows `fd`. */
using DumpProducer = std::function<android::status_t(int fd)>;

/**
 * Copies what `produce` writes to the output, as it comes. The time that writing to the output
 * takes is not the service's and prolongs the deadline.
 */
[[nodiscard]] PipedDumpResult runPipedDump(DumpProducer produce, std::chrono::milliseconds timeout,
                                           Output& output);

}  // namespace tools
