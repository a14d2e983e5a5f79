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
    /**
     * Must not call back into the hub. False: nothing was sent, since no more descriptors may be on
     * their way, and the record is to come again without them. Any other failure is the link's own
     * concern.
     */
    [[nodiscard]] virtual bool send(const Record& record) = 0;
};

}  // namespace binderhost::hub
