// SPDX-License-Identifier: Apache-2.0
#include "hub/References.h"

#include <algorithm>

#include "embedded/ByteReader.h"
#include "hub/Death.h"

namespace binderhost::hub {

NodePtr References::localNode(Process* process, const flat_binder_object& object) {
    auto [at, isNew] = process->nodes.try_emplace(object.binder);
    if (!isNew) return at->second->cookie == object.cookie ? at->second : nullptr;
    if (process->nodes.size() > mLimits.nodes) {
        process->nodes.erase(at);
        return nullptr;
    }
    at->second = std::make_shared<Node>();
    Node& node = *at->second;
    node.owner = process;
    node.ptr = object.binder;
    node.cookie = object.cookie;
    node.acceptsDescriptors = (object.flags & FLAT_BINDER_FLAG_ACCEPTS_FDS) != 0;
    return at->second;
}

Reference* References::find(Process* process, uint32_t handle) {
    auto at = process->handles.find(handle);
    return at == process->handles.end() ? nullptr : at->second.get();
}

uint32_t References::newHandle(Process* process, const NodePtr& node) {
    if (node == mContextManager && !process->handles.contains(0)) return 0;
    if (process->freeHandles.empty()) return process->nextHandle++;
    const uint32_t lowest = *process->freeHandles.begin();
    process->freeHandles.erase(process->freeHandles.begin());
    return lowest;
}

Reference* References::take(Process* process, const NodePtr& node, bool strong,
                            Thread* ownerThread) {
    Reference* reference = nullptr;
    if (auto known = process->handleOf.find(node.get()); known != process->handleOf.end()) {
        reference = known->second;
    } else {
        if (process->handles.size() >= mLimits.handles) return nullptr;
        auto made = std::make_unique<Reference>();
        reference = made.get();
        reference->handle = newHandle(process, node);
        reference->serial = ++mSerial;
        reference->node = node;
        reference->process = process;
        node->references.emplace(reference->serial, reference);
        process->handleOf.emplace(node.get(), reference);
        process->handles.emplace(reference->handle, std::move(made));
    }
    if (strong) {
        if (reference->strong++ == 0) node->strongHandles++;
    } else {
        reference->weak++;
    }
    settle(node, ownerThread);
    return reference;
}

void References::increment(Reference* reference, bool strong) {
    Node& node = *reference->node;
    if (!strong) {
        reference->weak++;
        return;
    }
    if (reference->strong == 0) {
        // A weak handle grows strong only while something else keeps the object alive.
        if (!node.strongHandles && !node.hasStrong) return;
        node.strongHandles++;
    }
    reference->strong++;
    settle(reference->node, /*ownerThread=*/nullptr);
}

void References::decrement(Reference* reference, bool strong) {
    uint32_t& count = strong ? reference->strong : reference->weak;
    if (count == 0) return;
    count--;
    const NodePtr node = reference->node;
    if (strong && count == 0) {
        node->strongHandles--;
        promiseNoMore(*reference);
    }
    if (!reference->strong && !reference->weak) {
        drop(reference);
    } else {
        settle(node, /*ownerThread=*/nullptr);
    }
}

void References::promiseNoMore(const Node& node) {
    for (const auto& [serial, reference] : node.references)
        promiseNoMore(*reference);
}

void References::promiseNoMore(const Reference& reference) {
    const auto& outbox = reference.process->outbox;
    if (!outbox) return;
    const uint64_t before = outbox->charged(reference.handle);
    const uint64_t now = outbox->promise(reference.handle, /*more=*/false);
    if (Process* receiver = reference.node->owner) receiver->promisedBytes += now - before;
}

void References::forgetPromise(const Reference& reference) {
    const auto& outbox = reference.process->outbox;
    if (!outbox) return;
    if (Process* receiver = reference.node->owner) {
        receiver->promisedBytes -= outbox->charged(reference.handle);
    }
    outbox->forget(reference.handle);
}

void References::drop(Reference* reference) {
    Process* process = reference->process;
    forgetPromise(*reference);
    const NodePtr node = reference->node;
    if (reference->strong) node->strongHandles--;
    node->references.erase(reference->serial);
    process->handleOf.erase(node.get());
    if (const DeathPtr death = reference->death) {
        death->cancelled = true;
        process->deathLinks--;
        process->deliveredDeaths.erase({death->cookie, death});
    }
    if (const uint32_t handle = reference->handle) process->freeHandles.insert(handle);
    process->handles.erase(reference->handle);
    settle(node, /*ownerThread=*/nullptr);
}

void References::pin(const NodePtr& node, bool strong) {
    (strong ? node->strongPins : node->weakPins)++;
    settle(node, /*ownerThread=*/nullptr);
}

void References::unpin(const NodePtr& node, bool strong) {
    (strong ? node->strongPins : node->weakPins)--;
    settle(node, /*ownerThread=*/nullptr);
}

void References::confirm(Process* process, const binder_ptr_cookie& object, bool strong) {
    auto at = process->nodes.find(object.ptr);
    if (at == process->nodes.end() || at->second->cookie != object.cookie) return;
    const NodePtr node = at->second;
    bool& unconfirmed = strong ? node->strongUnconfirmed : node->weakUnconfirmed;
    if (!unconfirmed) return;
    unconfirmed = false;
    unpin(node, strong);
}

void References::settle(const NodePtr& node, Thread* ownerThread) {
    Process* owner = node->owner;
    if (!owner || owner->dying) return;
    if (!node->differs()) {
        const bool unwanted = !node->weakWanted() && !node->queued;
        if (unwanted) owner->nodes.erase(node->ptr);
        return;
    }
    // Only what the owner must know before the answer concerns the thread.
    if (!node->gains()) ownerThread = nullptr;
    if (node->queued) {
        // A first reference must be read by the sender before any answer: bring it forward.
        if (!ownerThread || node->queuedAt == ownerThread) return;
        mScheduler->unqueue(node.get());
    }
    if (ownerThread) {
        // The reply that it must precede is what it rides on.
        mScheduler->queueDeferred(ownerThread, node);
    } else {
        mScheduler->queue(owner, node);
    }
}

void References::tellOwner(const NodePtr& node, Record* record) {
    node->queued = node->deferred = false;
    node->queuedAt = nullptr;
    auto tell = [&](uint32_t command) {
        appendBytes(&record->head, command);
        appendBytes(&record->head, binder_ptr_cookie{node->ptr, node->cookie});
    };
    const bool strong = node->strongWanted();
    const bool weak = node->weakWanted();
    if (weak && !node->hasWeak) {
        node->hasWeak = node->weakUnconfirmed = true;
        node->weakPins++;
        tell(BR_INCREFS);
    }
    if (strong && !node->hasStrong) {
        node->hasStrong = node->strongUnconfirmed = true;
        node->strongPins++;
        tell(BR_ACQUIRE);
    }
    if (!strong && node->hasStrong) {
        node->hasStrong = false;
        tell(BR_RELEASE);
    }
    if (!weak && node->hasWeak) {
        node->hasWeak = false;
        tell(BR_DECREFS);
    }
    settle(node, /*ownerThread=*/nullptr);
}

}  // namespace binderhost::hub
