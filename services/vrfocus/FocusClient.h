// SPDX-License-Identifier: Apache-2.0
//
// Focus client: the identity of one process.
//
// A pid alone does not identify a client, since pids are reused. A pid that comes back under
// another uid is another client.
#pragma once

#include <compare>
#include <cstdint>
#include <type_traits>

namespace NQS::OS {

/** Aligned like the word that it fits in: Clang calls a library for atomics of less. */
struct alignas(uint64_t) FocusClient {
    int32_t uid = 0;
    int32_t pid = 0;

    /** Lexicographic on (uid, pid), both signed. */
    // NOLINTNEXTLINE(modernize-use-nullptr): Clang 14 takes the operator itself for a null.
    friend auto operator<=>(const FocusClient&, const FocusClient&) = default;
};

// The tracker keeps one of them in an atomic word: uid in the low half, pid in the high half.
static_assert(sizeof(FocusClient) == sizeof(uint64_t));
static_assert(std::is_trivially_copyable_v<FocusClient>);

}  // namespace NQS::OS
