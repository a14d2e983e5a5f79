// SPDX-License-Identifier: Apache-2.0
//
// Store mapping: checks, reading and writing.
#include "StoreMapping.h"

#include <errno.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "PropertyRules.h"

namespace hostproperties {

using android::base::unique_fd;

namespace {

/**
 * A copy is spoilt when a change is completed during it, and set() takes some hundred times as long
 * as a copy. So many spoilt in a row are no set() but somebody who writes without a pause.
 */
constexpr int kMaxReads = 10000;

Status notAStore(const char* why) {
    return {.error = EBADF, .message = std::string("not a property store: ") + why};
}

}  // namespace

std::unique_ptr<StoreMapping> StoreMapping::map(unique_fd fd, Access access, Status* status) {
    struct stat file;
    if (fstat(fd.get(), &file) != 0) {
        *status = {.error = errno, .message = strerror(errno)};
        return nullptr;
    }
    if (!S_ISREG(file.st_mode) || file.st_size != static_cast<off_t>(sizeof(StoreLayout))) {
        *status = notAStore("of another kind or size");
        return nullptr;
    }
    const int protection = access == Access::kWrite ? PROT_READ | PROT_WRITE : PROT_READ;
    void* memory = mmap(nullptr, sizeof(StoreLayout), protection, MAP_SHARED, fd.get(), 0);
    if (memory == MAP_FAILED) {
        *status = {.error = errno, .message = strerror(errno)};
        return nullptr;
    }
    std::unique_ptr<StoreMapping> mapping(
            new StoreMapping(std::move(fd), static_cast<StoreLayout*>(memory)));
    const StoreLayout& layout = mapping->layout();
    if (layout.magic.load() != StoreLayout::kMagic) {
        *status = notAStore("the mark at its start is missing");
        return nullptr;
    }
    if (layout.version.load() != StoreLayout::kVersion) {
        *status = notAStore("of another version");
        return nullptr;
    }
    return mapping;
}

StoreMapping::~StoreMapping() {
    munmap(mLayout, sizeof(StoreLayout));
}

bool StoreMapping::isCurrent() const {
    struct stat file;
    return fstat(mFd.get(), &file) == 0 && file.st_nlink > 0 &&
           file.st_size == static_cast<off_t>(sizeof(StoreLayout));
}

StoreEntry* StoreMapping::entryOf(std::string_view name) const {
    if (name.size() >= PROP_NAME_MAX) return nullptr;
    const NameText::Words wanted = NameText::pack(name);
    const size_t size = mLayout->size();
    for (size_t i = 0; i < size; ++i) {
        if (mLayout->entries[i].name.equals(wanted)) return &mLayout->entries[i];
    }
    return nullptr;
}

std::optional<std::string> StoreMapping::read(const StoreEntry& entry) {
    uint64_t changes = entry.changes.load(std::memory_order_acquire);
    for (int attempt = 0; attempt < kMaxReads; ++attempt) {
        std::string value = entry.values[changes % 2].load();
        const uint64_t after = entry.changes.load(std::memory_order_acquire);
        if (after == changes) return value;
        changes = after;
    }
    return std::nullopt;
}

Status StoreMapping::write(std::string_view name, std::string_view value) {
    if (StoreEntry* entry = entryOf(name)) {
        if (isReadOnly(name)) {
            return {.error = EPERM, .message = "it is read-only and already set"};
        }
        const uint64_t next = entry->changes.load() + 1;
        entry->values[next % 2].store(ValueText::pack(value));
        entry->changes.store(next, std::memory_order_release);
        return {};
    }
    const size_t size = mLayout->size();
    if (size == kCapacity) return {.error = ENOSPC, .message = "the store is full"};
    StoreEntry& entry = mLayout->entries[size];
    entry.changes.store(0);
    entry.name.store(NameText::pack(name));
    entry.values[0].store(ValueText::pack(value));
    mLayout->count.store(size + 1, std::memory_order_release);
    return {};
}

}  // namespace hostproperties
