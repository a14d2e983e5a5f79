// SPDX-License-Identifier: Apache-2.0
//
// Focus request: the bytes of a call, written down without the runtime.
//
//      FocusRequest().int32(type).int32Vector(pids).payload()
//
// Remembers what each part is, and so what the receiver owes when the request ends inside it.
#pragma once

#include <utils/Errors.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "RawClient.h"

namespace daemontest {

using binderhost::tests::Payload;

class FocusRequest {
public:
    static constexpr std::u16string_view kDescriptor = u"velmar.internal.IVrFocusService";
    static constexpr int32_t kHeader = 'S' << 24 | 'Y' << 16 | 'S' << 8 | 'T';

    /** With the interface token that every call begins with. */
    explicit FocusRequest(std::u16string_view descriptor = kDescriptor, int32_t header = kHeader) {
        const size_t start = size();
        append(INT32_MIN).append(-1).append(header);
        appendText(descriptor);
        note(start, android::BAD_TYPE);
    }
    /** Without one. */
    static FocusRequest bare() {
        FocusRequest request;
        request.mPayload = {};
        request.mParts.clear();
        return request;
    }

    FocusRequest& int32(int32_t value) {
        note(size(), android::NOT_ENOUGH_DATA);
        return append(value);
    }
    FocusRequest& string16(std::u16string_view text) {
        note(size(), android::BAD_VALUE);
        return appendText(text);
    }
    FocusRequest& int32Vector(const std::vector<int32_t>& values) {
        int32(static_cast<int32_t>(values.size()));
        note(size(), android::BAD_VALUE);
        mPayload.bytes.append(reinterpret_cast<const char*>(values.data()), values.size() * 4);
        return *this;
    }
    /** A binder of the sender, with its stability; it is known by this address. */
    FocusRequest& node(uint64_t address) {
        note(size(), android::BAD_TYPE);
        mPayload.node(address, address);
        return int32(kSystemStability);
    }
    FocusRequest& handle(uint32_t handle) {
        note(size(), android::BAD_TYPE);
        mPayload.handle(handle);
        return int32(kSystemStability);
    }
    FocusRequest& nullBinder() {
        note(size(), android::BAD_TYPE);
        flat_binder_object object{};
        object.hdr.type = BINDER_TYPE_BINDER;
        const size_t objects = mPayload.offsets.size();
        mPayload.add(object);
        // No object to the driver: there is nothing to translate.
        mPayload.offsets.resize(objects);
        return int32(0);
    }
    FocusRequest& descriptor(int fd) {
        note(size(), android::BAD_TYPE);
        mPayload.descriptor(fd);
        return *this;
    }

    [[nodiscard]] const Payload& payload() const { return mPayload; }
    [[nodiscard]] size_t size() const { return mPayload.bytes.size(); }

    /** The first bytes, with the objects that are whole in them. */
    [[nodiscard]] Payload cut(size_t length) const {
        Payload first = mPayload;
        first.bytes.resize(length);
        std::erase_if(first.offsets,
                      [&](auto offset) { return offset + sizeof(flat_binder_object) > length; });
        return first;
    }
    /** The status due when only so many bytes arrive: that of the part which ends too early. */
    [[nodiscard]] int32_t statusWhenCut(size_t length) const {
        int32_t status = android::OK;
        for (const auto& [start, due] : mParts)
            if (start <= length) status = due;
        return status;
    }

private:
    static constexpr int32_t kSystemStability = 12;

    void note(size_t start, int32_t status) { mParts.emplace_back(start, status); }
    FocusRequest& append(int32_t value) {
        mPayload.bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
        return *this;
    }
    FocusRequest& appendText(std::u16string_view text) {
        append(static_cast<int32_t>(text.size()));
        std::u16string units(text);
        units.resize((units.size() + 2) & ~size_t{1});
        mPayload.bytes.append(reinterpret_cast<const char*>(units.data()), units.size() * 2);
        return *this;
    }

    Payload mPayload;
    /** Where each part starts, ascending, and the status due when it does not end. */
    std::vector<std::pair<size_t, int32_t>> mParts;
};

}  // namespace daemontest
