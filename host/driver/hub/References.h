// SPDX-License-Identifier: Apache-2.0
//
// References: nodes, handles and their counts.
//
// Contract: every change of a count ends in settle(), which makes the node work for its owner when
// the owner has to hear of it, and forgets a node that nobody wants any more.
#pragma once

#include "hub/Limits.h"
#include "hub/Link.h"
#include "hub/Process.h"
#include "hub/Scheduler.h"

namespace binderhost::hub {

class References {
public:
    References(Scheduler* scheduler, const Limits& limits)
          : mScheduler(scheduler), mLimits(limits) {}

    /** The node of an object of the process, made at first sight. Null: cookie differs, or limit.
     */
    [[nodiscard]] NodePtr localNode(Process* process, const flat_binder_object& object);
    [[nodiscard]] Reference* find(Process* process, uint32_t handle);

    /**
     * Counts a handle of the process on a node, made at first sight. The owner's thread, if given,
     * is who hears of a first reference. Null: the table is full.
     */
    [[nodiscard]] Reference* take(Process* process, const NodePtr& node, bool strong,
                                  Thread* ownerThread);
    void increment(Reference* reference, bool strong);
    /** Drops the reference, with its death link, when nothing counts any more. */
    void decrement(Reference* reference, bool strong);

    void pin(const NodePtr& node, bool strong);
    void unpin(const NodePtr& node, bool strong);

    /** BC_INCREFS_DONE, BC_ACQUIRE_DONE. Something never asked for is ignored. */
    void confirm(Process* process, const binder_ptr_cookie& object, bool strong);

    /** Writes what the owner must hear now. */
    void tellOwner(const NodePtr& node, Record* record);

    void contextManager(const NodePtr& node) { mContextManager = node; }
    [[nodiscard]] const NodePtr& contextManager() const { return mContextManager; }

    void drop(Reference* reference);

    /** One-way calls to the node must be asked about from now on. */
    void promiseNoMore(const Node& node);

    void settle(const NodePtr& node, Thread* ownerThread);

private:
    static void promiseNoMore(const Reference& reference);
    static void forgetPromise(const Reference& reference);
    [[nodiscard]] uint32_t newHandle(Process* process, const NodePtr& node);

    Scheduler* mScheduler;
    const Limits& mLimits;
    NodePtr mContextManager;
    uint64_t mSerial = 0;
};

}  // namespace binderhost::hub
