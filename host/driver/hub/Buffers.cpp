// SPDX-License-Identifier: Apache-2.0
#include "hub/Buffers.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>

#include "hub/Transaction.h"

namespace binderhost::hub {
namespace {

/** As the kernel rounds: each part to eight bytes, and an empty message is not free. */
uint64_t chargeFor(uint64_t dataSize, uint64_t offsetsSize) {
    const uint64_t rounded = ((dataSize + 7) & ~uint64_t{7}) + ((offsetsSize + 7) & ~uint64_t{7});
    return rounded ? rounded : 8;
}

/** The sender cannot change the data any more, and there is as much of it as it says. */
bool sealedAsPromised(const Buffer& buffer) {
    constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;
    const int memory = buffer.descriptors.front().get();
    const int seals = fcntl(memory, F_GET_SEALS);
    struct stat status {};
    return seals >= 0 && (seals & kSeals) == kSeals && fstat(memory, &status) == 0 &&
           S_ISREG(status.st_mode) && static_cast<uint64_t>(status.st_size) == buffer.dataSize;
}

}  // namespace

bool Buffers::hasRoom(const Process& receiver, uint64_t charge, bool oneway) const {
    return outbox::left(mLimits.bufferBytes, receiver.bufferBytes) >= charge &&
           (!oneway || outbox::left(mLimits.onewayBytes, receiver.onewayBytes) >= charge);
}

bool Buffers::mayPromise(const Process& receiver) const {
    return receiver.bufferBytes <= mLimits.bufferBytes / 2 &&
           receiver.onewayBytes + receiver.promisedBytes + outbox::kPromise <=
                   mLimits.onewayBytes / 2;
}

bool Buffers::reserve(const Request& request, const Message& message, Buffer* buffer) {
    const uint64_t dataSize = message.data.data_size;
    const uint64_t offsetsSize = message.data.offsets_size;
    if (dataSize > mLimits.bufferBytes || offsetsSize > mLimits.bufferBytes) return false;
    Process& receiver = *request.receiver;
    const uint64_t charge = chargeFor(dataSize, offsetsSize);
    if (!request.promised && !hasRoom(receiver, charge, request.oneway)) return false;
    const size_t descriptors = message.descriptors.size();
    if (descriptors > mLimits.descriptors - receiver.descriptors) return false;
    buffer->owner = &receiver;
    buffer->charge = charge;
    buffer->oneway = request.oneway;
    buffer->senderPid = request.sender->identity.pid();
    buffer->dataSize = dataSize;
    buffer->offsetsSize = offsetsSize;
    buffer->placement = message.placement;
    receiver.bufferBytes += charge;
    if (request.oneway) receiver.onewayBytes += charge;
    receiver.descriptors += descriptors;
    return true;
}

Buffer* Buffers::make(const Request& request, Message* message) {
    if (message->placement == frame::Placement::Unsendable || message->descriptorsLost) {
        return nullptr;
    }
    auto made = std::make_unique<Buffer>();
    Buffer* buffer = made.get();
    if (!reserve(request, *message, buffer)) return nullptr;
    buffer->descriptors = std::move(message->descriptors);
    buffer->number = ++mLastNumber;
    request.receiver->buffers.emplace(buffer->number, std::move(made));
    message->descriptors.clear();
    if (!takeObjects(request, message, buffer)) {
        // No node of its own yet: the release cannot set another one-way call going.
        release(buffer);
        return nullptr;
    }
    return buffer;
}

bool Buffers::takeObjects(const Request& request, Message* message, Buffer* buffer) {
    const bool inMemory = message->placement == frame::Placement::Memory;
    if (inMemory && !sealedAsPromised(*buffer)) return false;
    const uint64_t dataSize = buffer->dataSize;
    if (buffer->offsetsSize % sizeof(binder_size_t) != 0) return false;
    const uint64_t count = buffer->offsetsSize / sizeof(binder_size_t);
    if (count > frame::kMaxObjects) return false;
    if (inMemory && message->objects.size() != count * frame::kObjectSize) return false;

    auto& payload = buffer->payload;
    payload.reserve(message->bytes.size() + message->offsets.size() + message->objects.size());
    payload.assign(message->bytes.begin(), message->bytes.end());
    payload.insert(payload.end(), message->offsets.begin(), message->offsets.end());
    payload.insert(payload.end(), message->objects.begin(), message->objects.end());

    uint64_t firstFree = 0;
    uint32_t descriptorsSeen = inMemory ? 1 : 0;
    buffer->objects.reserve(count);
    for (uint64_t i = 0; i < count; i++) {
        binder_size_t offset = 0;
        std::memcpy(&offset, message->offsets.data() + i * sizeof(offset), sizeof(offset));
        if (offset % sizeof(uint32_t) != 0 || offset < firstFree || offset > dataSize ||
            dataSize - offset < frame::kObjectSize) {
            return false;
        }
        firstFree = offset + frame::kObjectSize;
        uint8_t* place = inMemory ? payload.data() + buffer->offsetsSize + i * frame::kObjectSize
                                  : payload.data() + offset;
        flat_binder_object object;
        std::memcpy(&object, place, sizeof(object));
        if (!translate(request, *buffer, &descriptorsSeen, &object)) return false;
        buffer->objects.push_back(object);
        std::memcpy(place, &object, sizeof(object));
    }
    return descriptorsSeen == buffer->descriptors.size();
}

bool Buffers::translate(const Request& request, const Buffer& buffer, uint32_t* descriptorsSeen,
                        flat_binder_object* object) {
    switch (object->hdr.type) {
        case BINDER_TYPE_BINDER:
        case BINDER_TYPE_WEAK_BINDER:
            return translateLocal(request, object);
        case BINDER_TYPE_HANDLE:
        case BINDER_TYPE_WEAK_HANDLE:
            return translateHandle(request, object);
        case BINDER_TYPE_FD: {
            if (!request.acceptsDescriptors) return false;
            if (*descriptorsSeen >= buffer.descriptors.size()) return false;
            object->binder = 0;
            object->handle = (*descriptorsSeen)++;
            return true;
        }
        default:
            return false;
    }
}

bool Buffers::translateLocal(const Request& request, flat_binder_object* object) {
    const bool strong = object->hdr.type == BINDER_TYPE_BINDER;
    const NodePtr node = mReferences->localNode(request.sender, *object);
    if (!node) return false;
    const Reference* reference =
            request.receiver == request.sender
                    ? nullptr
                    : mReferences->take(request.receiver, node, strong, request.thread);
    if (!reference) {
        mReferences->settle(node, /*ownerThread=*/nullptr);
        return false;
    }
    object->hdr.type = strong ? BINDER_TYPE_HANDLE : BINDER_TYPE_WEAK_HANDLE;
    object->binder = 0;
    object->handle = reference->handle;
    object->cookie = 0;
    return true;
}

bool Buffers::translateHandle(const Request& request, flat_binder_object* object) {
    const bool strong = object->hdr.type == BINDER_TYPE_HANDLE;
    const Reference* held = mReferences->find(request.sender, object->handle);
    if (!held || (strong && held->strong == 0)) return false;
    const NodePtr node = held->node;
    if (node->owner == request.receiver) {
        mReferences->pin(node, strong);
        object->hdr.type = strong ? BINDER_TYPE_BINDER : BINDER_TYPE_WEAK_BINDER;
        object->binder = node->ptr;
        object->cookie = node->cookie;
        return true;
    }
    const Reference* reference = mReferences->take(request.receiver, node, strong,
                                                   /*ownerThread=*/nullptr);
    if (!reference) return false;
    object->binder = 0;
    object->handle = reference->handle;
    object->cookie = 0;
    return true;
}

void Buffers::releaseObject(Process* receiver, const flat_binder_object& object) {
    switch (object.hdr.type) {
        case BINDER_TYPE_BINDER:
        case BINDER_TYPE_WEAK_BINDER: {
            auto at = receiver->nodes.find(object.binder);
            if (at == receiver->nodes.end()) return;
            const NodePtr node = at->second;
            mReferences->unpin(node, object.hdr.type == BINDER_TYPE_BINDER);
            return;
        }
        case BINDER_TYPE_HANDLE:
        case BINDER_TYPE_WEAK_HANDLE:
            if (Reference* held = mReferences->find(receiver, object.handle)) {
                mReferences->decrement(held, object.hdr.type == BINDER_TYPE_HANDLE);
            }
            return;
        default:
            return;
    }
}

void Buffers::release(Buffer* buffer) {
    Process* receiver = buffer->owner;
    auto at = receiver->buffers.find(buffer->number);
    const std::unique_ptr<Buffer> last = std::move(at->second);
    receiver->buffers.erase(at);
    receiver->bufferBytes -= last->charge;
    if (last->oneway) receiver->onewayBytes -= last->charge;
    receiver->descriptors -= last->descriptors.size();
    for (const flat_binder_object& object : last->objects)
        releaseObject(receiver, object);
    const NodePtr node = last->target;
    if (!node) return;
    if (last->oneway) {
        if (node->onewayTodo.empty()) {
            node->onewayBusy = false;
        } else {
            TransactionPtr next = std::move(node->onewayTodo.front());
            node->onewayTodo.pop_front();
            mScheduler->queue(receiver, std::move(next));
        }
    }
    mReferences->unpin(node, /*strong=*/true);
}

bool Buffers::looksLikeSpam(Process* receiver, pid_t sender) const {
    if (outbox::left(mLimits.onewayBytes, receiver->onewayBytes) >= mLimits.bufferBytes / 10) {
        receiver->spamReported = false;
        return false;
    }
    if (receiver->spamReported) return false;
    size_t count = 0;
    uint64_t bytes = 0;
    for (const auto& [number, buffer] : receiver->buffers) {
        if (!buffer->oneway || buffer->senderPid != sender) continue;
        count++;
        bytes += buffer->charge;
    }
    receiver->spamReported = count > 50 || bytes > mLimits.bufferBytes / 4;
    return receiver->spamReported;
}

}  // namespace binderhost::hub
