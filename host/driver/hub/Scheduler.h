// SPDX-License-Identifier: Apache-2.0
//
// Scheduler: who gets which work.
//
// Problem: work belongs to one thread (answers, nested calls) or to any idle looper of a process.
// This class keeps the lists and remembers, in the order of events, the threads to look at when
// the frame in hand is done: so what a sender must know first goes out before what it sent.
#pragma once

#include <deque>

#include "hub/Process.h"
#include "hub/Work.h"

namespace binderhost::hub {

class Scheduler {
public:
    void queue(Thread* thread, Work work);
    /** For the thread to be told with the next thing, as a deferred Notice. */
    void queueDeferred(Thread* thread, const NodePtr& node);
    /** To the idle looper that waited last, else to the process's list. */
    void queue(Process* process, Work work);
    /** The thread's state has changed: looked at when the frame in hand is done. */
    void touch(Thread* thread);
    /** Next thread to look at, or null. */
    [[nodiscard]] Thread* nextTouched();
    /** Brings idleness up to date; may move work of the process to the thread. */
    void settle(Thread* thread);
    void leaveIdle(Thread* thread);
    /** The thread is about to go. */
    void forget(Thread* thread);
    /** The thread's list must not be empty. */
    [[nodiscard]] Work takeFirst(Thread* thread);
    /** Takes a node's work out of whichever list holds it. */
    void unqueue(Node* node);

private:
    std::deque<Thread*> mTouched;
};

}  // namespace binderhost::hub
