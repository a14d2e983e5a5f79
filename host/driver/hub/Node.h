// SPDX-License-Identifier: Apache-2.0
//
// Node: an object that a process has handed out.
//
//      strong wanted = a handle holds it strongly, or a buffer pins it, or its owner was told to
//                      hold it and has not confirmed
//      weak wanted   = any handle, any weak pin, or strong wanted
//
// hasStrong and hasWeak are what the owner was told last (BR_ACQUIRE/BR_RELEASE and
// BR_INCREFS/BR_DECREFS); a difference makes the node work for its owner. A node whose owner has
// died stays until the last handle is gone, with no owner.
#pragma once

#include <cstdint>
#include <deque>
#include <map>

#include "hub/Work.h"

namespace binderhost::hub {

struct Process;
struct Thread;
struct Reference;

struct Node {
    Process* owner = nullptr;
    uint64_t ptr = 0;
    uint64_t cookie = 0;
    bool acceptsDescriptors = false;

    uint32_t strongHandles = 0;
    uint32_t strongPins = 0;
    uint32_t weakPins = 0;
    bool hasStrong = false;
    bool hasWeak = false;
    bool strongUnconfirmed = false;
    bool weakUnconfirmed = false;

    /** Where its work waits: a thread's list, else the owner's. Meaningful while queued. */
    bool queued = false;
    Thread* queuedAt = nullptr;
    /** There it waits for the next thing to go out with. */
    bool deferred = false;

    /** By serial number, so that death notices go out in the order of the references. */
    std::map<uint64_t, Reference*> references;

    /** A one-way call is running or on its way; the others wait here. */
    bool onewayBusy = false;
    std::deque<TransactionPtr> onewayTodo;

    [[nodiscard]] bool strongWanted() const { return strongHandles || strongPins; }
    [[nodiscard]] bool weakWanted() const {
        return strongWanted() || weakPins || !references.empty();
    }
    /** Its owner has something to hold that it was not told of. */
    [[nodiscard]] bool gains() const {
        return (strongWanted() && !hasStrong) || (weakWanted() && !hasWeak);
    }
    [[nodiscard]] bool differs() const {
        return strongWanted() != hasStrong || weakWanted() != hasWeak;
    }
};

}  // namespace binderhost::hub
