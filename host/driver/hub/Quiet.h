// SPDX-License-Identifier: Apache-2.0
//
// Quiet: whether anything is in flight.
//
// Problem: a test that asks what must not have happened has to know that nothing more will. The
// hub sees all that travels between processes; this decides from its state whether something does:
//
//      a call            waits for a thread, is running, or its answer has not been read
//      a one-way call    likewise, or waits for the one before it; until its buffer is freed
//      a notice of death waits, or has not been confirmed with BC_DEAD_BINDER_DONE
//      a pool thread     is not back at its wait, whatever it does there
//
// Why one look is enough. A process acts because of a call, a one-way call or a notice; while it
// does, one of the above holds. What it then sends comes before what ends that (the reply, the
// freed buffer, the confirmation, the wait): one thread's frames are read in their order, and
// letters before any frame that was sent after them. So where the cause is seen to have ended, its
// effects are in the hub's state, and are themselves in flight or over. The caller (Server) first
// reads whatever was sent before it was asked: all frames, all ends of processes, all letters.
//
// Left out is what waits for processes that are named (stopped, hung): what they have to read or to
// answer; and in turn the calls of those whose answer needs theirs, with all that stands behind.
//
// What is not seen: work handed to a thread of no pool, until it calls; what processes tell each
// other by other ways; timers. A thread that waits for a lock of one that waits for a process that
// is left out counts as running.
//
// References are not looked at: their notices may wait for ever in a process without a pool.
#pragma once

#include <sys/types.h>

#include <optional>
#include <set>
#include <string>

#include "hub/Hub.h"

namespace binderhost::hub {

/** What is in flight, said of the first thing found; none when all is quiet. */
[[nodiscard]] std::optional<std::string> inFlight(const Hub& hub, const std::set<pid_t>& leftOut);

}  // namespace binderhost::hub
