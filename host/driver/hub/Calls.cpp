// SPDX-License-Identifier: Apache-2.0
#include "hub/Calls.h"

#include "embedded/ByteReader.h"

namespace binderhost::hub {
namespace {

/** Up to here a copy costs less than what the kernel asks for a second part of a record. */
constexpr size_t kCopiedBytes = 1024;

}  // namespace

void Calls::refuse(Thread* thread, uint32_t command) {
    mScheduler->queue(thread, Notice{command});
}

NodePtr Calls::targetOf(Thread* thread, uint32_t handle) {
    NodePtr node;
    if (handle == 0) {
        node = mReferences->contextManager();
        if (node && node->owner == thread->process) {
            refuse(thread, BR_FAILED_REPLY);
            return nullptr;
        }
    } else {
        const Reference* reference = mReferences->find(thread->process, handle);
        if (!reference || reference->strong == 0) {
            refuse(thread, BR_FAILED_REPLY);
            return nullptr;
        }
        node = reference->node;
    }
    if (!node || !node->owner) {
        refuse(thread, BR_DEAD_REPLY);
        return nullptr;
    }
    return node;
}

Thread* Calls::waitingThread(const Thread& caller, const Process* receiver) {
    if (caller.stack.empty()) return nullptr;
    for (const Transaction* up = caller.stack.back().get(); up; up = up->fromParent.get()) {
        if (up->from && up->from->process == receiver) return up->from;
    }
    return nullptr;
}

bool Calls::mayCall(const Thread& caller, const Process* receiver) const {
    if (caller.stack.empty()) return true;
    const Transaction& inHand = *caller.stack.back();
    if (inHand.to != &caller) return false;  // it still waits for the answer to another call
    const Thread* waiting = waitingThread(caller, receiver);
    return inHand.depth < mLimits.nesting && (!waiting || waiting->stack.size() < mLimits.nesting);
}

void Calls::transact(Thread* thread, uid_t uid, Message* message) {
    const bool oneway = (message->data.flags & TF_ONE_WAY) != 0;
    const NodePtr node = targetOf(thread, message->data.target.handle);
    if (!node) return;
    if (!oneway && !mayCall(*thread, node->owner)) {
        refuse(thread, BR_FAILED_REPLY);
        return;
    }
    Buffer* buffer = mBuffers->make({thread->process, thread, node->owner, oneway,
                                     /*acceptsDescriptors=*/node->acceptsDescriptors},
                                    message);
    if (!buffer) {
        refuse(thread, BR_FAILED_REPLY);
        return;
    }
    buffer->target = node;
    mReferences->pin(node, /*strong=*/true);

    auto call = std::make_shared<Transaction>();
    call->oneway = oneway;
    call->code = message->data.code;
    call->flags = message->data.flags;
    call->senderUid = uid;
    call->buffer = buffer;
    if (oneway) {
        reportOneway(thread, node->owner);
        promise(thread->process, message->data.target.handle, node->owner);
        sendOneway(node, std::move(call));
    } else {
        sendTwoWay(thread, node->owner, std::move(call));
    }
}

void Calls::post(Process* sender, const Outbox::Letter& letter) {
    const Reference* reference = mReferences->find(sender, letter.head.handle);
    if (!reference || reference->strong == 0 || !reference->node->owner) return;
    const NodePtr node = reference->node;
    Message message;
    message.data.data_size = letter.data.size();
    message.bytes = letter.data;
    Buffer* buffer = mBuffers->make({sender, /*thread=*/nullptr, node->owner, /*oneway=*/true,
                                     /*acceptsDescriptors=*/false, /*promised=*/true},
                                    &message);
    if (!buffer) return;
    buffer->target = node;
    mReferences->pin(node, /*strong=*/true);
    auto call = std::make_shared<Transaction>();
    call->oneway = true;
    call->code = letter.head.code;
    call->flags = letter.head.flags | TF_ONE_WAY;
    call->senderUid = sender->outbox->uid();
    call->buffer = buffer;
    promise(sender, letter.head.handle, node->owner);
    sendOneway(node, std::move(call));
}

void Calls::promise(Process* sender, uint32_t handle, Process* receiver) {
    if (!sender->outbox) return;
    receiver->promisedBytes -= sender->outbox->charged(handle);
    receiver->promisedBytes += sender->outbox->promise(handle, mBuffers->mayPromise(*receiver));
}

void Calls::reportOneway(Thread* thread, Process* receiver) {
    const bool spam = mBuffers->looksLikeSpam(receiver, thread->process->identity.pid()) &&
                      thread->process->spamDetection;
    refuse(thread, spam ? BR_ONEWAY_SPAM_SUSPECT : BR_TRANSACTION_COMPLETE);
}

void Calls::sendOneway(const NodePtr& node, TransactionPtr call) {
    if (node->onewayBusy) {
        node->onewayTodo.push_back(std::move(call));
        return;
    }
    node->onewayBusy = true;
    mScheduler->queue(node->owner, std::move(call));
}

void Calls::sendTwoWay(Thread* thread, Process* receiver, TransactionPtr call) {
    call->from = thread;
    Thread* waiting = waitingThread(*thread, receiver);
    if (!thread->stack.empty()) {
        call->fromParent = thread->stack.back();
        call->depth = call->fromParent->depth + 1;
    }
    thread->stack.push_back(call);
    mScheduler->queue(thread, Notice{BR_TRANSACTION_COMPLETE, /*deferred=*/true});
    if (waiting) {
        mScheduler->queue(waiting, std::move(call));
    } else {
        mScheduler->queue(receiver, std::move(call));
    }
}

void Calls::reply(Thread* thread, uid_t uid, Message* message, bool completesLocally) {
    if (thread->stack.empty() || thread->stack.back()->to != thread) {
        refuse(thread, BR_FAILED_REPLY);
        return;
    }
    const TransactionPtr call = thread->stack.back();
    thread->stack.pop_back();
    Thread* caller = call->from;
    Buffer* buffer = nullptr;
    if (caller) {
        buffer = mBuffers->make({thread->process, thread, caller->process, /*oneway=*/false,
                                 /*acceptsDescriptors=*/(call->flags & TF_ACCEPT_FDS) != 0},
                                message);
    }
    if (!completesLocally) refuse(thread, BR_TRANSACTION_COMPLETE);
    giveEarlyAnswer(thread);
    if (caller && !buffer) fail(call, BR_FAILED_REPLY);
    if (!buffer) return;
    auto made = std::make_shared<Transaction>();
    made->reply = true;
    made->code = message->data.code;
    made->flags = message->data.flags;
    made->senderUid = uid;
    made->buffer = buffer;
    answer(call, std::move(made));
}

void Calls::reject(Thread* thread) {
    if (thread->stack.empty() || thread->stack.back()->to != thread) return;
    const TransactionPtr call = thread->stack.back();
    thread->stack.pop_back();
    giveEarlyAnswer(thread);
    fail(call, BR_FAILED_REPLY);
}

void Calls::fail(const TransactionPtr& call, uint32_t command) {
    if (call->from) answer(call, Notice{command});
}

void Calls::answer(const TransactionPtr& call, Work work) {
    Thread* caller = call->from;
    if (caller->stack.empty() || caller->stack.back() != call) {
        call->early = std::move(work);
        return;
    }
    caller->stack.pop_back();
    mScheduler->queue(caller, std::move(work));
}

void Calls::giveEarlyAnswer(Thread* thread) {
    if (thread->stack.empty()) return;
    const TransactionPtr top = thread->stack.back();
    if (top->from != thread || !top->early) return;
    thread->stack.pop_back();
    mScheduler->queue(thread, std::move(*top->early));
}

void Calls::abandon(Thread* thread) {
    std::vector<TransactionPtr> stack;
    stack.swap(thread->stack);
    for (const TransactionPtr& call : stack) {
        if (call->from != thread) continue;
        call->from = nullptr;
        const auto* reply = call->early ? std::get_if<TransactionPtr>(&*call->early) : nullptr;
        if (reply) discard(*reply);
    }
    for (const TransactionPtr& call : stack) {
        if (call->to != thread) continue;
        call->to = nullptr;
        fail(call, BR_DEAD_REPLY);
    }
}

void Calls::discard(const TransactionPtr& transaction) {
    if (transaction->buffer) mBuffers->release(transaction->buffer);
    transaction->buffer = nullptr;
    fail(transaction, BR_DEAD_REPLY);
}

void Calls::deliver(const TransactionPtr& transaction, Thread* thread, Record* record) {
    Buffer& buffer = *transaction->buffer;
    frame::Transaction wire;
    wire.data.target.ptr = buffer.target ? buffer.target->ptr : 0;
    wire.data.cookie = buffer.target ? buffer.target->cookie : 0;
    wire.data.code = transaction->code;
    wire.data.flags = transaction->flags;
    wire.data.sender_pid = transaction->from ? transaction->from->process->identity.pid() : 0;
    wire.data.sender_euid = transaction->senderUid;
    wire.data.data_size = buffer.dataSize;
    wire.data.offsets_size = buffer.offsetsSize;
    wire.buffer = buffer.number;
    wire.placement = buffer.placement;
    wire.descriptors = static_cast<uint32_t>(buffer.descriptors.size());
    wire.objects = static_cast<uint32_t>(buffer.objects.size());
    appendBytes(&record->head, uint32_t{transaction->reply ? BR_REPLY : BR_TRANSACTION});
    appendBytes(&record->head, wire);

    if (buffer.payload.size() <= kCopiedBytes) {
        record->head.insert(record->head.end(), buffer.payload.begin(), buffer.payload.end());
    } else {
        record->payload = std::move(buffer.payload);
    }
    buffer.owner->descriptors -= buffer.descriptors.size();
    record->descriptors = std::move(buffer.descriptors);
    buffer.payload.clear();
    buffer.descriptors.clear();
    buffer.delivered = true;
    buffer.reader = thread->serial;
    transaction->buffer = nullptr;
    if (transaction->reply || transaction->oneway) return;
    transaction->to = thread;
    thread->stack.push_back(transaction);
}

}  // namespace binderhost::hub
