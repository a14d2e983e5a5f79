// SPDX-License-Identifier: Apache-2.0
//
// Message: the argument of a BC_TRANSACTION or BC_REPLY, cut out of a frame.
//
// Only its shape is checked here (a wrong shape is a broken driver); what it says is checked where
// it is used, and a wrong word fails that call only.
#pragma once

#include <span>
#include <vector>

#include "embedded/ByteReader.h"
#include "embedded/Frame.h"
#include "hub/Closing.h"

namespace binderhost::hub {

/** The descriptors of a frame, handed out in order. */
struct FrameDescriptors {
    std::vector<PassedDescriptor> all;
    size_t used = 0;
    /** The hub had no room for some: every message with descriptors fails, and no other. */
    bool lost = false;
};

struct Message {
    binder_transaction_data data{};
    frame::Placement placement = frame::Placement::Inline;
    std::span<const uint8_t> bytes;  // Inline: the data
    std::span<const uint8_t> offsets;
    std::span<const uint8_t> objects;  // Memory
    std::vector<PassedDescriptor> descriptors;
    bool descriptorsLost = false;

    /** False: the frame is malformed. */
    [[nodiscard]] static bool take(ByteReader* reader, FrameDescriptors* descriptors, Message* out);
};

}  // namespace binderhost::hub
