// SPDX-License-Identifier: Apache-2.0
#include "hub/Connection.h"

#include <sys/socket.h>

#include <cerrno>

#include "embedded/Socket.h"

namespace binderhost::hub {

bool Connection::send(const Record& record) {
    if (!open()) return true;
    const iovec parts[] = {
            {const_cast<uint8_t*>(record.head.data()), record.head.size()},
            {const_cast<uint8_t*>(record.payload.data()), record.payload.size()},
    };
    const size_t count = record.payload.empty() ? 1 : 2;
    int status = 0;
    if (record.descriptors.empty()) {
        status =
                sendRecord(descriptor(), {parts, count}, {}, /*credentials=*/nullptr, MSG_DONTWAIT);
    } else {
        std::vector<int> descriptors;
        for (const auto& each : record.descriptors)
            descriptors.push_back(each.get());
        status = sendRecord(descriptor(), {parts, count}, descriptors, /*credentials=*/nullptr,
                            MSG_DONTWAIT);
    }
    // Too many of the user's are in sockets that nobody reads: not the doing of this one.
    if (status == -ETOOMANYREFS && !record.descriptors.empty()) return false;
    // A driver that has gone is noticed by its hang-up, after its last frames were read.
    if (status != 0 && status != -EPIPE && status != -ECONNRESET) mStuffed->push_back(this);
    return true;
}

}  // namespace binderhost::hub
