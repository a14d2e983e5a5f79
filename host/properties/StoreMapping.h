// SPDX-License-Identifier: Apache-2.0
//
// Store mapping: one store's file in memory.
//
// Ownership: holds the descriptor and the mapping. Threads: a mapping is immutable but for what
// the store's words hold; those that write hold the file's lock.
#pragma once

#include <android-base/unique_fd.h>
#include <properties/PropertyStore.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "StoreLayout.h"

namespace hostproperties {

class StoreMapping {
public:
    enum class Access { kRead, kWrite };

    /**
     * Maps an open file. Null when it is no store of this version, with a status that says so
     * (EBADF), or when the system refuses.
     */
    [[nodiscard]] static std::unique_ptr<StoreMapping> map(android::base::unique_fd fd,
                                                           Access access, Status* status);

    ~StoreMapping();
    StoreMapping(const StoreMapping&) = delete;
    StoreMapping& operator=(const StoreMapping&) = delete;

    /** Whether the file still has a name and its full size, so that the mapping may be read. */
    [[nodiscard]] bool isCurrent() const;

    /** Null when the name has no entry. */
    [[nodiscard]] const StoreEntry* find(std::string_view name) const { return entryOf(name); }

    /** The value that held at one moment during the call; empty when writers never let go. */
    [[nodiscard]] static std::optional<std::string> read(const StoreEntry& entry);

    [[nodiscard]] const StoreLayout& layout() const { return *mLayout; }

    /** Only for a mapping made for writing, under the file's lock. Name and value are valid. */
    Status write(std::string_view name, std::string_view value);

private:
    StoreMapping(android::base::unique_fd fd, StoreLayout* layout)
          : mFd(std::move(fd)), mLayout(layout) {}

    [[nodiscard]] StoreEntry* entryOf(std::string_view name) const;

    const android::base::unique_fd mFd;
    StoreLayout* const mLayout;
};

}  // namespace hostproperties
