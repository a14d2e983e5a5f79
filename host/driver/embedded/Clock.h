// SPDX-License-Identifier: Apache-2.0
//
// The clock by which one-way calls of different processes are put in order.
#pragma once

#include <cstdint>
#include <ctime>

namespace binderhost {

/** Nanoseconds; no later reading, by whatever process, is less. */
[[nodiscard]] inline uint64_t monotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

}  // namespace binderhost
