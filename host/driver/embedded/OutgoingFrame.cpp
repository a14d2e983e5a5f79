// SPDX-License-Identifier: Apache-2.0
#include "embedded/OutgoingFrame.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "embedded/ByteReader.h"

namespace binderhost {

using android::base::unique_fd;

/** How a transaction will travel. */
struct OutgoingFrame::Plan {
    binder_transaction_data data{};
    frame::Placement placement = frame::Placement::Inline;
    std::vector<flat_binder_object> objects;
    std::vector<int> descriptors;

    [[nodiscard]] size_t size() const {
        size_t total = sizeof(uint32_t) + sizeof(frame::Transaction);
        if (placement != frame::Placement::Unsendable) total += data.offsets_size;
        if (placement == frame::Placement::Inline) total += data.data_size;
        if (placement == frame::Placement::Memory) total += objects.size() * frame::kObjectSize;
        return total;
    }
};

namespace {

template <typename T>
const T* pointerOf(binder_uintptr_t address) {
    return reinterpret_cast<const T*>(static_cast<uintptr_t>(address));
}

/** The objects as the sender wrote them; false when an offset leads out of the data. */
bool collectObjects(const binder_transaction_data& data, std::vector<flat_binder_object>* out) {
    const uint64_t count = data.offsets_size / sizeof(binder_size_t);
    for (uint64_t i = 0; i < count; i++) {
        binder_size_t offset = 0;
        std::memcpy(&offset, pointerOf<uint8_t>(data.data.ptr.offsets) + i * sizeof(offset),
                    sizeof(offset));
        if (offset > data.data_size || data.data_size - offset < frame::kObjectSize) return false;
        flat_binder_object object;
        std::memcpy(&object, pointerOf<uint8_t>(data.data.ptr.buffer) + offset, sizeof(object));
        out->push_back(object);
    }
    return true;
}

/** A memory file that holds the data and can never change. Not ok() when there is none to have. */
unique_fd sealedCopy(const uint8_t* data, uint64_t size) {
    unique_fd memory(memfd_create("binder", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    for (uint64_t done = 0; memory.ok() && done < size;) {
        const ssize_t written = write(memory.get(), data + done, size - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return {};
        done += static_cast<uint64_t>(written);
    }
    constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;
    if (!memory.ok() || fcntl(memory.get(), F_ADD_SEALS, kSeals)) return {};
    return memory;
}

}  // namespace

OutgoingFrame::Plan OutgoingFrame::plan(const binder_transaction_data& data) const {
    Plan plan;
    plan.data = data;
    auto unsendable = [&plan] {
        plan.placement = frame::Placement::Unsendable;
        return plan;
    };
    const uint64_t count = data.offsets_size / sizeof(binder_size_t);
    if (data.data_size > frame::kBufferBytes || data.offsets_size > frame::kBufferBytes ||
        count > frame::kMaxObjects || !collectObjects(data, &plan.objects)) {
        return unsendable();
    }
    if (data.data_size > frame::kInlineBytes) plan.placement = frame::Placement::Memory;
    for (const flat_binder_object& object : plan.objects) {
        if (object.hdr.type != BINDER_TYPE_FD) continue;
        const int descriptor = static_cast<int>(object.handle);
        const bool checked = mMode != Descriptors::Send;
        if (mMode == Descriptors::None || (checked && fcntl(descriptor, F_GETFD) < 0)) {
            return unsendable();
        }
        plan.descriptors.push_back(descriptor);
    }
    const size_t memory = plan.placement == frame::Placement::Memory ? 1 : 0;
    if (plan.descriptors.size() + memory > frame::kMaxDescriptors) return unsendable();
    return plan;
}

void OutgoingFrame::append(uint32_t command, const Plan& plan) {
    frame::Transaction head;
    head.data = plan.data;
    head.data.data.ptr = {};
    head.placement = plan.placement;
    unique_fd memory;
    if (head.placement == frame::Placement::Memory) {
        memory = sealedCopy(pointerOf<uint8_t>(plan.data.data.ptr.buffer), plan.data.data_size);
        if (!memory.ok()) head.placement = frame::Placement::Unsendable;
    }
    const bool sendable = head.placement != frame::Placement::Unsendable;
    if (sendable) {
        head.descriptors = static_cast<uint32_t>(plan.descriptors.size() + (memory.ok() ? 1 : 0));
        head.objects = static_cast<uint32_t>(plan.objects.size());
    }
    appendBytes(&mBytes, command);
    appendBytes(&mBytes, head);
    if (!sendable) return;
    const auto* data = pointerOf<uint8_t>(plan.data.data.ptr.buffer);
    const auto* offsets = pointerOf<uint8_t>(plan.data.data.ptr.offsets);
    if (head.placement == frame::Placement::Inline) {
        mBytes.insert(mBytes.end(), data, data + plan.data.data_size);
    }
    mBytes.insert(mBytes.end(), offsets, offsets + plan.data.offsets_size);
    if (memory.ok()) {
        for (const flat_binder_object& object : plan.objects)
            appendBytes(&mBytes, object);
        mDescriptors.push_back(memory.get());
        mMemory.push_back(std::move(memory));
    }
    mDescriptors.insert(mDescriptors.end(), plan.descriptors.begin(), plan.descriptors.end());
}

bool OutgoingFrame::addTransaction(uint32_t command, const binder_transaction_data& data) {
    const Plan each = plan(data);
    const size_t descriptors =
            each.descriptors.size() + (each.placement == frame::Placement::Memory ? 1 : 0);
    const bool first = empty();
    if (!first && (mBytes.size() + each.size() > frame::kMaxBytes ||
                   mDescriptors.size() + descriptors > frame::kMaxDescriptors)) {
        return false;
    }
    append(command, each);
    if (command == BC_REPLY) {
        mReplies++;
        mReplyHasObjects = mReplyHasObjects || data.offsets_size != 0;
    } else {
        mTransactions++;
    }
    return true;
}

bool OutgoingFrame::add(std::span<const uint8_t> commands) {
    ByteReader reader(commands);
    while (!reader.empty() && mBytes.size() + 64 < frame::kMaxBytes) {
        uint32_t command = 0;
        std::span<const uint8_t> argument;
        if (!reader.take(&command) || !reader.takeBytes(_IOC_SIZE(command), &argument)) {
            return false;
        }
        switch (command) {
            case BC_TRANSACTION:
            case BC_REPLY: {
                binder_transaction_data data;
                std::memcpy(&data, argument.data(), sizeof(data));
                if (!addTransaction(command, data)) return true;
                break;
            }
            case BC_FREE_BUFFER: {
                uint64_t address = 0;
                std::memcpy(&address, argument.data(), sizeof(address));
                if (const auto number = mBuffers.numberOf(address)) {
                    appendBytes(&mBytes, command);
                    appendBytes(&mBytes, *number);
                    mFreed.push_back(address);
                } else {
                    std::fprintf(stderr, "binder: BC_FREE_BUFFER of 0x%llx, which is no buffer\n",
                                 static_cast<unsigned long long>(address));
                }
                break;
            }
            case BC_INCREFS:
            case BC_ACQUIRE:
            case BC_RELEASE:
            case BC_DECREFS:
            case BC_INCREFS_DONE:
            case BC_ACQUIRE_DONE:
            case BC_REGISTER_LOOPER:
            case BC_ENTER_LOOPER:
            case BC_EXIT_LOOPER:
            case BC_REQUEST_DEATH_NOTIFICATION:
            case BC_CLEAR_DEATH_NOTIFICATION:
            case BC_DEAD_BINDER_DONE:
                appendBytes(&mBytes, command);
                mBytes.insert(mBytes.end(), argument.begin(), argument.end());
                break;
            default:
                return false;
        }
        mConsumed = commands.size() - reader.left();
    }
    return true;
}

void OutgoingFrame::setFlags(uint32_t flags) {
    frame::Header header;
    header.kind = frame::Kind::Commands;
    header.flags = flags;
    header.descriptors = static_cast<uint32_t>(mDescriptors.size());
    std::memcpy(mBytes.data(), &header, sizeof(header));
}

}  // namespace binderhost
