// SPDX-License-Identifier: Apache-2.0
//
// Store layout: what stands in the file, in the byte order of the machine.
//
//      header  magic, version, number of entries in use
//      entry   count of changes, name, value A, value B        (kCapacity times)
//
// An entry's name never changes once the header counts it. Its value is the one at place
// `changes % 2`. Everything is an atomic word: processes read while another writes. Words of the
// values are stored with release and loaded with acquire, so that a reader that met a word of a
// later value also sees the raised count and tries again.
#pragma once

#include <properties/PropertyStore.h>
#include <sys/system_properties.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace hostproperties {

using Word = std::atomic<uint64_t>;
static_assert(Word::is_always_lock_free, "a lock inside the word would be of this process alone");

/** Text of less than SIZE bytes, zero-filled, as words. */
template <size_t SIZE>
class SharedText {
public:
    static constexpr size_t kWords = (SIZE + sizeof(uint64_t) - 1) / sizeof(uint64_t);
    using Words = std::array<uint64_t, kWords>;

    /** `text` is shorter than SIZE. */
    [[nodiscard]] static Words pack(std::string_view text) {
        Words words{};
        memcpy(words.data(), text.data(), text.size());
        return words;
    }

    void store(const Words& words) {
        for (size_t i = 0; i < kWords; ++i)
            mWords[i].store(words[i], std::memory_order_release);
    }

    [[nodiscard]] bool equals(const Words& words) const {
        for (size_t i = 0; i < kWords; ++i) {
            if (mWords[i].load(std::memory_order_acquire) != words[i]) return false;
        }
        return true;
    }

    /** Ends at the first zero, wherever a foreign hand has put it. */
    [[nodiscard]] std::string load() const {
        Words words;
        for (size_t i = 0; i < kWords; ++i)
            words[i] = mWords[i].load(std::memory_order_acquire);
        const char* text = reinterpret_cast<const char*>(words.data());
        return {text, strnlen(text, SIZE - 1)};
    }

private:
    std::array<Word, kWords> mWords;
};

using NameText = SharedText<PROP_NAME_MAX>;
using ValueText = SharedText<PROP_VALUE_MAX>;

struct StoreEntry {
    Word changes;
    NameText name;
    std::array<ValueText, 2> values;
};

struct StoreLayout {
    static constexpr uint64_t kMagic = 0x3153504f52505848;  // "HXPROPS1"
    static constexpr uint64_t kVersion = 1;

    Word magic;
    Word version;
    Word count;
    std::array<StoreEntry, kCapacity> entries;

    /** Entries in use; bounded, whatever the file says. */
    [[nodiscard]] size_t size() const {
        return std::min<uint64_t>(count.load(std::memory_order_acquire), kCapacity);
    }
};

}  // namespace hostproperties
