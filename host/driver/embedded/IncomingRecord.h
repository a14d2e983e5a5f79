// SPDX-License-Identifier: Apache-2.0
//
// IncomingRecord: a record of the hub, turned into what a BR_* reader expects.
//
// Payloads go into buffers of this process, descriptors get their numbers here. A payload that
// cannot be had (no descriptor or mapping left) becomes a failure of that call alone.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "embedded/BufferTable.h"
#include "embedded/ByteReader.h"
#include "embedded/Frame.h"
#include "embedded/Socket.h"

namespace binderhost {

struct IncomingRecord {
    /** Complete BR_* commands with pointers. */
    std::vector<uint8_t> returns;
    /** Commands, in the hub's form, that it must be sent before anything else. */
    std::vector<uint8_t> owed;
    /** Two-way calls among the returns. */
    uint32_t calls = 0;

    /** Appends a record. False: not what a hub sends. Takes the descriptors it can use. */
    [[nodiscard]] bool add(std::span<const uint8_t> record, Received* received,
                           BufferTable* buffers);

    /** Gives back the buffers, descriptors and notices of returns that nobody will read. */
    void abandon(BufferTable* buffers);

private:
    [[nodiscard]] bool addTransaction(uint32_t command, ByteReader* reader, Received* received,
                                      BufferTable* buffers);
    void refuse(uint32_t command, const frame::Transaction& head);
};

}  // namespace binderhost
