// SPDX-License-Identifier: Apache-2.0
//
// BufferTable: the payloads that this process holds, by address.
//
// The runtime names a buffer by its address and may do so on any thread; the hub knows it by
// number. An address that is in no entry is refused, whatever it points to.
//
// mLock guards the table only; nothing is called under it.
#pragma once

#include <android-base/thread_annotations.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <unordered_map>

namespace binderhost {

class BufferTable {
public:
    BufferTable() = default;
    ~BufferTable();
    BufferTable(const BufferTable&) = delete;
    BufferTable& operator=(const BufferTable&) = delete;

    /** Room for a payload: `size` bytes, aligned for any object. The table owns it. */
    [[nodiscard]] uint8_t* add(uint64_t number, size_t size);
    /**
     * A payload whose data stand in a memory file; its pages become this process's own when
     * written to. `extra` bytes of room for the offsets follow. Null when it cannot be mapped.
     */
    [[nodiscard]] uint8_t* addMapped(uint64_t number, int memory, size_t size, size_t extra,
                                     uint8_t** extraRoom);

    [[nodiscard]] std::optional<uint64_t> numberOf(uint64_t address) const;
    void release(uint64_t address);

private:
    struct Entry {
        uint64_t number = 0;
        uint8_t* heap = nullptr;
        void* map = nullptr;
        size_t mapSize = 0;
    };
    static void free(const Entry& entry);
    void insert(uint64_t address, const Entry& entry);

    mutable std::mutex mLock;
    std::unordered_map<uint64_t, Entry> mEntries GUARDED_BY(mLock);
};

}  // namespace binderhost
