// SPDX-License-Identifier: Apache-2.0
//
// Bounded reading of a record whose writer is not trusted.
//
// A read that does not fit fails and changes nothing; sizes are compared before any addition, so a
// wild 64-bit size cannot wrap.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

namespace binderhost {

class ByteReader {
public:
    explicit ByteReader(std::span<const uint8_t> bytes) : mBytes(bytes) {}

    template <typename T>
    [[nodiscard]] bool take(T* out) {
        static_assert(std::is_trivially_copyable_v<T>);
        if (mBytes.size() < sizeof(T)) return false;
        std::memcpy(out, mBytes.data(), sizeof(T));
        mBytes = mBytes.subspan(sizeof(T));
        return true;
    }

    [[nodiscard]] bool takeBytes(uint64_t size, std::span<const uint8_t>* out) {
        if (mBytes.size() < size) return false;
        *out = mBytes.first(size);
        mBytes = mBytes.subspan(size);
        return true;
    }

    [[nodiscard]] bool empty() const { return mBytes.empty(); }
    [[nodiscard]] size_t left() const { return mBytes.size(); }

private:
    std::span<const uint8_t> mBytes;
};

/** Appends the bytes of a trivially copyable value. */
template <typename Bytes, typename T>
void appendBytes(Bytes* out, const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    const auto* raw = reinterpret_cast<const uint8_t*>(&value);
    out->insert(out->end(), raw, raw + sizeof(T));
}

}  // namespace binderhost
