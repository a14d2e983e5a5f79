// SPDX-License-Identifier: Apache-2.0
//
// Thread: a thread of a process as the hub knows it.
//
//            frame with kRead              work for it
//      busy ───────────────────▶ waiting ──────────────▶ busy   (one record is sent)
//
// A waiting thread is *idle*, and gets work of its process, when it is a looper, is in no call and
// has nothing of its own to read.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "hub/Work.h"

namespace binderhost::hub {

struct Process;
class Link;

struct Thread {
    Thread(Process* owner, Link* way, uint64_t which) : process(owner), link(way), serial(which) {}

    Process* process;
    Link* link;
    /** No other thread's, ever. */
    uint64_t serial;
    bool looper = false;
    bool waiting = false;
    bool idle = false;
    bool dirty = false;
    std::deque<Work> todo;
    size_t deferred = 0;
    /** Calls it waits for and calls it has to answer, innermost last. */
    std::vector<TransactionPtr> stack;

    [[nodiscard]] bool hasDeliverable() const { return todo.size() > deferred; }
};

}  // namespace binderhost::hub
