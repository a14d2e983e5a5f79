// SPDX-License-Identifier: Apache-2.0
//
// Golden parcel: requests and replies put together byte by byte, without the code under test.
//
// Usage:
//
//      GoldenParcel::request(u"velmar.internal.IVrFocusHelper").int32(1).bytes()
//
// The format is the device's: host byte order, which is little-endian on the device and on every
// host of ours; each value padded to 4 bytes.
#pragma once

#include <binder/Binder.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace NQS::OS {

class GoldenParcel {
public:
    /** Strict-mode policy and work source of a thread that has neither, the header, the token. */
    static GoldenParcel request(std::u16string_view descriptor) {
        return GoldenParcel().int32(INT32_MIN).int32(-1).int32(0x53595354).string16(descriptor);
    }
    /** The status of a call that succeeded. */
    static GoldenParcel reply() { return GoldenParcel().int32(0); }

    GoldenParcel& int32(int32_t value) { return append(&value, sizeof(value)); }
    GoldenParcel& int64(int64_t value) { return append(&value, sizeof(value)); }
    GoldenParcel& string16(std::u16string_view text) {
        int32(static_cast<int32_t>(text.size()));
        std::u16string units(text);
        units.resize(text.size() / 2 * 2 + 2);
        return append(units.data(), units.size() * sizeof(char16_t));
    }
    /**
     * A local binder: object type, flags (no priority of its own, descriptors accepted), the two
     * words of its address, stability "system".
     */
    GoldenParcel& binder(const android::sp<android::IBinder>& object) {
        int32('s' << 24 | 'b' << 16 | '*' << 8 | 0x85).int32(0x17f);
        int64(reinterpret_cast<intptr_t>(object->localBinder()->getWeakRefs()));
        return int64(reinterpret_cast<intptr_t>(object->localBinder())).int32(12);
    }

    const std::vector<uint8_t>& bytes() const { return mBytes; }

private:
    GoldenParcel& append(const void* data, size_t length) {
        const auto* begin = static_cast<const uint8_t*>(data);
        mBytes.insert(mBytes.end(), begin, begin + length);
        return *this;
    }

    std::vector<uint8_t> mBytes;
};

}  // namespace NQS::OS
