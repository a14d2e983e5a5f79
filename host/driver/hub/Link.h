// SPDX-License-Identifier: Apache-2.0
//
// Link: the way back to a thread's driver. A socket in the hub, a list in its unit tests.
#pragma once

#include <cstdint>
#include <vector>

#include "hub/Closing.h"

namespace binderhost::hub {

/** One record of Returns: head (header and BR_* stream), then the payload of its transaction. */
struct Record {
    std::vector<uint8_t> head;
    std::vector<uint8_t> payload;
    std::vector<PassedDescriptor> descriptors;
};

class Link {
public:
    virtual ~Link() = default;
    /** Must not call back into the hub. What cannot be sent is the link's own concern. */
    virtual void send(const Record& record) = 0;
};

}  // namespace binderhost::hub
