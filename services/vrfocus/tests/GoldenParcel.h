// SPDX-License-Identifier: Apache-2.0
//
// Golden parcel: the bytes of a request or a reply, written down without the code under test.
//
// Usage:
//
//      GoldenParcel::request(u"android.app.IActivityManager").int32(pid).int32(uid)
//
// Little-endian, as every machine of ours; each value padded to 4 bytes.
#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace NQS::OS {

class GoldenParcel {
public:
    /** Strict-mode policy and work source of a thread that has neither, the header, the token. */
    static GoldenParcel request(std::u16string_view descriptor) {
        return GoldenParcel()
                .int32(INT32_MIN)
                .int32(-1)
                .int32('S' << 24 | 'Y' << 16 | 'S' << 8 | 'T')
                .string16(descriptor);
    }
    /** The status of a call that succeeded. */
    static GoldenParcel reply() { return GoldenParcel().int32(0); }
    /** The status of a call that raised an exception: code, message, no remote stack trace. */
    static GoldenParcel exception(int32_t code) {
        return GoldenParcel().int32(code).string16(u"no").int32(0);
    }

    GoldenParcel& int32(int32_t value) { return append(&value, sizeof(value)); }
    GoldenParcel& int64(int64_t value) { return append(&value, sizeof(value)); }
    GoldenParcel& string16(std::u16string_view text) {
        int32(static_cast<int32_t>(text.size()));
        std::u16string units(text);
        units.push_back(u'\0');
        if (units.size() % 2 != 0) units.push_back(u'\0');
        return append(units.data(), units.size() * sizeof(char16_t));
    }
    GoldenParcel& nullString() { return int32(-1); }
    GoldenParcel& int32Vector(const std::vector<int32_t>& values) {
        int32(static_cast<int32_t>(values.size()));
        return append(values.data(), values.size() * sizeof(int32_t));
    }
    /**
     * A local binder: object type, flags (no priority of its own, descriptors accepted), the two
     * words of its address, stability "system".
     */
    GoldenParcel& binder(const android::sp<android::IBinder>& object) {
        int32('s' << 24 | 'b' << 16 | '*' << 8 | 0x85);
        int32(0x17f);
        int64(reinterpret_cast<intptr_t>(object->localBinder()->getWeakRefs()));
        int64(reinterpret_cast<intptr_t>(object->localBinder()));
        return int32(12);
    }

    const std::vector<uint8_t>& bytes() const { return mBytes; }
    std::string hex() const { return toHex(mBytes); }

    /** Words of 4 bytes, for failure messages that can be read. */
    static std::string toHex(const std::vector<uint8_t>& bytes) {
        std::string text;
        for (size_t i = 0; i < bytes.size(); ++i) {
            constexpr char kDigits[] = "0123456789abcdef";
            if (i % 4 == 0 && i != 0) text += ' ';
            text += kDigits[bytes[i] >> 4];
            text += kDigits[bytes[i] & 0xf];
        }
        return text;
    }

private:
    GoldenParcel& append(const void* data, size_t length) {
        const auto* begin = static_cast<const uint8_t*>(data);
        mBytes.insert(mBytes.end(), begin, begin + length);
        return *this;
    }

    std::vector<uint8_t> mBytes;
};

/** A remote object as a proxy sees one: keeps the request, gives a prepared answer. */
class RecordingBinder : public android::BBinder {
public:
    uint32_t code = 0;
    uint32_t flags = 0;
    std::vector<uint8_t> request;
    int calls = 0;

    android::status_t result = android::OK;
    std::vector<uint8_t> reply;

protected:
    android::status_t onTransact(uint32_t transactionCode, const android::Parcel& data,
                                 android::Parcel* out, uint32_t transactionFlags) override {
        ++calls;
        code = transactionCode;
        flags = transactionFlags;
        request.assign(data.data(), data.data() + data.dataSize());
        if (out != nullptr && !reply.empty()) out->setData(reply.data(), reply.size());
        return result;
    }
};

}  // namespace NQS::OS
