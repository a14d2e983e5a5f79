// SPDX-License-Identifier: Apache-2.0
//
// Everything that a process can pin in the hub has its bound here, but for the memory of its
// outbox: that is of one size (embedded/OutboxLayout.h), one for a process, and so bounded by
// connections.
#pragma once

#include <cstddef>
#include <cstdint>

#include "embedded/Frame.h"

namespace binderhost::hub {

struct Limits {
    /** Undelivered and unfreed payload, as on the device, so that size faults show up here too. */
    uint64_t bufferBytes = frame::kBufferBytes;
    /** One-way calls get half of it: they cannot keep two-way calls and replies out. */
    uint64_t onewayBytes = frame::kBufferBytes / 2;
    /** Objects that a process may hand out: a leak of a million ends here and not in the hub. */
    size_t nodes = 100'000;
    /** Handles in a process's table, for the same reason on the receiving side. */
    size_t handles = 100'000;
    /** Death links with their notices and confirmations; one link a handle in honest use. */
    size_t deathLinks = 110'000;
    /** Descriptors that wait in the hub for one receiver; two messages' worth and room. */
    size_t descriptors = 512;
    /** Notices that one thread leaves unread; an honest thread reads after each call. */
    size_t threadBacklog = 4096;
    /** Notices that leaving threads give back; a record holds some 1600, and few threads leave. */
    size_t untold = 16'384;
    /** Calls within calls; stacks of honest threads end long before. */
    size_t nesting = 256;
    /** Connections of one process: fifteen pool threads and plenty of callers. */
    size_t threadsPerProcess = 1024;
    /** Connections altogether, below the usual hard limit of descriptors. */
    size_t connections = 16'384;
    /** Connections that have not said who they are; the oldest gives way. */
    size_t strangers = 256;
};

}  // namespace binderhost::hub
