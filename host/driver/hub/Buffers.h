// SPDX-License-Identifier: Apache-2.0
//
// Buffers: messages on the receiver's account.
//
// make() charges the receiver, checks every object and gives it the form that the receiver must
// see; it either succeeds whole or leaves no trace. release() takes all of that back.
#pragma once

#include "hub/Limits.h"
#include "hub/Message.h"
#include "hub/Process.h"
#include "hub/References.h"

namespace binderhost::hub {

class Buffers {
public:
    Buffers(Scheduler* scheduler, References* references, const Limits& limits)
          : mScheduler(scheduler), mReferences(references), mLimits(limits) {}

    struct Request {
        Process* sender;
        /** Of the sender; null for a message without objects. */
        Thread* thread;
        Process* receiver;
        bool oneway;
        bool acceptsDescriptors;
        /** The sender was told that there is room, and there was when it was told. */
        bool promised = false;
    };

    /** Null: no room, or a word of the message is wrong. */
    [[nodiscard]] Buffer* make(const Request& request, Message* message);

    /** Ends the buffer; a one-way one lets the next call of its node go. */
    void release(Buffer* buffer);

    /** True once each time the sender has come to fill the receiver's one-way space. */
    [[nodiscard]] bool looksLikeSpam(Process* receiver, pid_t sender) const;

    /** So much is neither used nor promised that one-way calls may be promised room unseen. */
    [[nodiscard]] bool mayPromise(const Process& receiver) const;

private:
    [[nodiscard]] bool hasRoom(const Process& receiver, uint64_t charge, bool oneway) const;
    [[nodiscard]] bool reserve(const Request& request, const Message& message, Buffer* buffer);
    [[nodiscard]] bool takeObjects(const Request& request, Message* message, Buffer* buffer);
    [[nodiscard]] bool translate(const Request& request, const Buffer& buffer,
                                 uint32_t* descriptorsSeen, flat_binder_object* object);
    [[nodiscard]] bool translateLocal(const Request& request, flat_binder_object* object);
    [[nodiscard]] bool translateHandle(const Request& request, flat_binder_object* object);
    void releaseObject(Process* receiver, const flat_binder_object& object);

    Scheduler* mScheduler;
    References* mReferences;
    const Limits& mLimits;
    uint64_t mLastNumber = 0;
};

}  // namespace binderhost::hub
