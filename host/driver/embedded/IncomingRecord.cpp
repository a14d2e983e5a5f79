// SPDX-License-Identifier: Apache-2.0
#include "embedded/IncomingRecord.h"

#include <unistd.h>

namespace binderhost {
namespace {

uint64_t addressOf(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

/** Calls with each offset's object place; false when one leads out of the data. */
template <typename Act>
bool eachObject(uint8_t* data, uint64_t dataSize, const uint8_t* offsets, uint64_t offsetsSize,
                Act act) {
    for (uint64_t i = 0; i + sizeof(binder_size_t) <= offsetsSize; i += sizeof(binder_size_t)) {
        binder_size_t offset = 0;
        std::memcpy(&offset, offsets + i, sizeof(offset));
        if (offset > dataSize || dataSize - offset < frame::kObjectSize) return false;
        act(data + offset, i / sizeof(binder_size_t));
    }
    return true;
}

}  // namespace

bool IncomingRecord::add(std::span<const uint8_t> record, Received* received,
                         BufferTable* buffers) {
    ByteReader reader(record);
    frame::Header header;
    if (!reader.take(&header) || header.magic != frame::kMagic ||
        header.kind != frame::Kind::Returns) {
        return false;
    }
    if (received->descriptors.size() != header.descriptors) received->descriptorsLost = true;
    while (!reader.empty()) {
        uint32_t command = 0;
        if (!reader.take(&command)) return false;
        if (command == BR_TRANSACTION || command == BR_REPLY) {
            if (!addTransaction(command, &reader, received, buffers)) return false;
            continue;
        }
        std::span<const uint8_t> argument;
        if (!reader.takeBytes(_IOC_SIZE(command), &argument)) return false;
        appendBytes(&returns, command);
        returns.insert(returns.end(), argument.begin(), argument.end());
    }
    return true;
}

void IncomingRecord::refuse(uint32_t command, const frame::Transaction& head) {
    if (command == BR_REPLY) {
        appendBytes(&returns, uint32_t{BR_FAILED_REPLY});
    } else if (!(head.data.flags & TF_ONE_WAY)) {
        appendBytes(&owed, frame::kCommandReject);
    }
    appendBytes(&owed, uint32_t{BC_FREE_BUFFER});
    appendBytes(&owed, head.buffer);
}

bool IncomingRecord::addTransaction(uint32_t command, ByteReader* reader, Received* received,
                                    BufferTable* buffers) {
    frame::Transaction head;
    std::span<const uint8_t> bytes, offsets, objects;
    const bool mapped = reader->take(&head) && head.placement == frame::Placement::Memory;
    if ((!mapped && !reader->takeBytes(head.data.data_size, &bytes)) ||
        !reader->takeBytes(head.data.offsets_size, &offsets) ||
        (mapped && !reader->takeBytes(uint64_t{head.objects} * frame::kObjectSize, &objects))) {
        return false;
    }
    if (head.descriptors && received->descriptorsLost) {
        refuse(command, head);
        return true;
    }
    if (head.descriptors > received->descriptors.size() || (mapped && !head.descriptors)) {
        return false;
    }
    uint8_t* data = nullptr;
    uint8_t* offsetsRoom = nullptr;
    if (mapped) {
        data = buffers->addMapped(head.buffer, received->descriptors.front().get(),
                                  head.data.data_size, offsets.size(), &offsetsRoom);
        if (!data) {
            refuse(command, head);
            return true;
        }
    } else {
        const size_t start = (bytes.size() + 7) & ~size_t{7};
        data = buffers->add(head.buffer, start + offsets.size());
        offsetsRoom = data + start;
        std::copy(bytes.begin(), bytes.end(), data);
    }
    std::copy(offsets.begin(), offsets.end(), offsetsRoom);
    bool sound = !mapped || objects.size() / frame::kObjectSize == offsets.size() / 8;
    sound = sound && eachObject(data, head.data.data_size, offsetsRoom, offsets.size(),
                                [&](uint8_t* place, uint64_t index) {
                                    if (mapped)
                                        std::memcpy(place, &objects[index * frame::kObjectSize],
                                                    frame::kObjectSize);
                                    flat_binder_object object;
                                    std::memcpy(&object, place, sizeof(object));
                                    if (object.hdr.type != BINDER_TYPE_FD) return;
                                    const uint32_t ordinal = object.handle;
                                    const bool known = ordinal < received->descriptors.size();
                                    object.handle = static_cast<uint32_t>(
                                            known ? received->descriptors[ordinal].release() : -1);
                                    std::memcpy(place, &object, sizeof(object));
                                });
    if (!sound) return false;
    head.data.data.ptr = {addressOf(data), addressOf(offsetsRoom)};
    appendBytes(&returns, command);
    appendBytes(&returns, head.data);
    if (command == BR_TRANSACTION && !(head.data.flags & TF_ONE_WAY)) calls++;
    return true;
}

void IncomingRecord::abandon(BufferTable* buffers) {
    ByteReader reader(returns);
    uint32_t command = 0;
    std::span<const uint8_t> argument;
    while (reader.take(&command) && reader.takeBytes(_IOC_SIZE(command), &argument)) {
        if (command == BR_DEAD_BINDER) {
            appendBytes(&owed, frame::kCommandUntold);
            owed.insert(owed.end(), argument.begin(), argument.end());
        }
        const bool ofNode = command == BR_INCREFS || command == BR_ACQUIRE ||
                            command == BR_RELEASE || command == BR_DECREFS;
        if (ofNode) {
            appendBytes(&owed, command);
            owed.insert(owed.end(), argument.begin(), argument.end());
        }
        if (command != BR_TRANSACTION && command != BR_REPLY) continue;
        binder_transaction_data data;
        std::memcpy(&data, argument.data(), sizeof(data));
        auto* bytes = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(data.data.ptr.buffer));
        const auto* offsets =
                reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(data.data.ptr.offsets));
        const bool whole = eachObject(bytes, data.data_size, offsets, data.offsets_size,
                                      [](const uint8_t* place, uint64_t) {
                                          flat_binder_object object;
                                          std::memcpy(&object, place, sizeof(object));
                                          if (object.hdr.type == BINDER_TYPE_FD)
                                              close(static_cast<int>(object.handle));
                                      });
        const auto number = buffers->numberOf(data.data.ptr.buffer);
        if (!whole || !number) continue;
        appendBytes(&owed, uint32_t{BC_FREE_BUFFER});
        appendBytes(&owed, *number);
        buffers->release(data.data.ptr.buffer);
    }
    returns.clear();
}

}  // namespace binderhost
