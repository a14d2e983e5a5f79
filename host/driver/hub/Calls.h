// SPDX-License-Identifier: Apache-2.0
//
// Calls: transactions and replies, from the command to the receiver's list.
//
// Each two-way call is answered exactly once: by the reply, by BR_FAILED_REPLY (wrong or too much)
// or by BR_DEAD_REPLY (nobody is there). An answer is given when the call is the innermost one of
// its caller: a thread in a nested call cannot take it for that call's answer.
#pragma once

#include "hub/Buffers.h"
#include "hub/Process.h"
#include "hub/References.h"
#include "hub/Transaction.h"

namespace binderhost::hub {

class Calls {
public:
    Calls(Scheduler* scheduler, References* references, Buffers* buffers, const Limits& limits)
          : mScheduler(scheduler), mReferences(references), mBuffers(buffers), mLimits(limits) {}

    void transact(Thread* thread, uid_t uid, Message* message);
    /** A one-way call that was promised to be taken; one to a receiver that has gone is lost. */
    void post(Process* sender, const Outbox::Letter& letter);
    void reply(Thread* thread, uid_t uid, Message* message, bool completesLocally);
    /** The call in hand could not be received after all: its caller fails. */
    void reject(Thread* thread);

    /** Ends a call without a reply. */
    void fail(const TransactionPtr& call, uint32_t command);
    /** The thread is going: its callers get BR_DEAD_REPLY, answers to it go nowhere. */
    void abandon(Thread* thread);
    /** A transaction that will not be delivered. */
    void discard(const TransactionPtr& transaction);

    /** Writes the transaction; the thread is now the one to answer it. */
    void deliver(const TransactionPtr& transaction, Thread* thread, Record* record);

private:
    void refuse(Thread* thread, uint32_t command);
    /** Null, and the sender told why not. */
    [[nodiscard]] NodePtr targetOf(Thread* thread, uint32_t handle);
    /** The thread of the receiver that waits in the caller's chain, or null. */
    [[nodiscard]] static Thread* waitingThread(const Thread& caller, const Process* receiver);
    /** Nobody's stack and no chain may grow for ever. */
    [[nodiscard]] bool mayCall(const Thread& caller, const Process* receiver) const;
    /** Whether the sender's next one-way calls to the handle may come as letters. */
    void promise(Process* sender, uint32_t handle, Process* receiver);
    /** Tells the sender that the call was accepted. */
    void reportOneway(Thread* thread, Process* receiver);
    void sendOneway(const NodePtr& node, TransactionPtr call);
    void sendTwoWay(Thread* thread, Process* receiver, TransactionPtr call);
    /** To the caller, which is alive; at once, or when it is back from a nested call. */
    void answer(const TransactionPtr& call, Work work);
    void giveEarlyAnswer(Thread* thread);

    Scheduler* mScheduler;
    References* mReferences;
    Buffers* mBuffers;
    const Limits& mLimits;
};

}  // namespace binderhost::hub
