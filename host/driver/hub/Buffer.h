// SPDX-License-Identifier: Apache-2.0
//
// Buffer: the receiver's copy of a message, from the sending until BC_FREE_BUFFER.
//
// The bytes leave with the delivery; what stays is the charge to the receiver and the references
// that the message's objects and target hold.
#pragma once

#include <linux/android/binder.h>

#include <cstdint>
#include <vector>

#include "embedded/Frame.h"
#include "hub/Closing.h"
#include "hub/Work.h"

namespace binderhost::hub {

struct Process;

struct Buffer {
    uint64_t number = 0;
    Process* owner = nullptr;
    uint64_t charge = 0;
    bool oneway = false;
    bool delivered = false;
    /** Serial number of the thread that it was delivered to. */
    uint64_t reader = 0;
    pid_t senderPid = 0;
    NodePtr target;

    /** As the receiver sees them; each holds a pin or a handle's count until the release. */
    std::vector<flat_binder_object> objects;

    uint64_t dataSize = 0;
    uint64_t offsetsSize = 0;
    frame::Placement placement = frame::Placement::Inline;
    std::vector<uint8_t> payload;
    /** The memory file first, if there is one. */
    std::vector<PassedDescriptor> descriptors;
};

}  // namespace binderhost::hub
