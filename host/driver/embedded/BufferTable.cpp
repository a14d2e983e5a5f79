// SPDX-License-Identifier: Apache-2.0
#include "embedded/BufferTable.h"

#include <sys/mman.h>

#include <cstdlib>

namespace binderhost {
namespace {

uint64_t addressOf(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

/** An empty payload needs an address of its own too. */
uint8_t* allocate(size_t size) {
    auto* room = static_cast<uint8_t*>(std::malloc(size ? size : 1));
    if (!room) std::abort();
    return room;
}

}  // namespace

BufferTable::~BufferTable() {
    const std::lock_guard lock(mLock);
    for (const auto& [address, entry] : mEntries)
        free(entry);
}

uint8_t* BufferTable::add(uint64_t number, size_t size) {
    uint8_t* room = allocate(size);
    insert(addressOf(room), {.number = number, .heap = room});
    return room;
}

uint8_t* BufferTable::addMapped(uint64_t number, int memory, size_t size, size_t extra,
                                uint8_t** extraRoom) {
    void* map = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE, memory, 0);
    if (map == MAP_FAILED) return nullptr;
    *extraRoom = allocate(extra);
    insert(addressOf(map), {.number = number, .heap = *extraRoom, .map = map, .mapSize = size});
    return static_cast<uint8_t*>(map);
}

void BufferTable::insert(uint64_t address, const Entry& entry) {
    const std::lock_guard lock(mLock);
    mEntries.emplace(address, entry);
}

std::optional<uint64_t> BufferTable::numberOf(uint64_t address) const {
    const std::lock_guard lock(mLock);
    auto at = mEntries.find(address);
    if (at == mEntries.end()) return std::nullopt;
    return at->second.number;
}

void BufferTable::release(uint64_t address) {
    Entry entry;
    {
        const std::lock_guard lock(mLock);
        auto at = mEntries.find(address);
        if (at == mEntries.end()) return;
        entry = at->second;
        mEntries.erase(at);
    }
    free(entry);
}

void BufferTable::free(const Entry& entry) {
    std::free(entry.heap);
    if (entry.map) munmap(entry.map, entry.mapSize);
}

}  // namespace binderhost
