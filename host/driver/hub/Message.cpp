// SPDX-License-Identifier: Apache-2.0
#include "hub/Message.h"

namespace binderhost::hub {

bool Message::take(ByteReader* reader, FrameDescriptors* descriptors, Message* out) {
    frame::Transaction head;
    if (!reader->take(&head)) return false;
    out->data = head.data;
    out->placement = head.placement;
    switch (head.placement) {
        case frame::Placement::Unsendable:
            return head.descriptors == 0;
        case frame::Placement::Inline:
            // More would not fit the record to the receiver.
            if (head.data.data_size > frame::kInlineBytes ||
                !reader->takeBytes(head.data.data_size, &out->bytes) ||
                !reader->takeBytes(head.data.offsets_size, &out->offsets)) {
                return false;
            }
            break;
        case frame::Placement::Memory:
            if (head.descriptors == 0 ||
                !reader->takeBytes(head.data.offsets_size, &out->offsets) ||
                !reader->takeBytes(uint64_t{head.objects} * frame::kObjectSize, &out->objects)) {
                return false;
            }
            break;
        default:
            return false;
    }
    if (descriptors->lost) {
        out->descriptorsLost = head.descriptors > 0;
        return true;
    }
    if (head.descriptors > descriptors->all.size() - descriptors->used) return false;
    for (uint32_t i = 0; i < head.descriptors; i++) {
        out->descriptors.push_back(std::move(descriptors->all[descriptors->used++]));
    }
    return true;
}

}  // namespace binderhost::hub
