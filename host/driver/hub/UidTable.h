// SPDX-License-Identifier: Apache-2.0
//
// UidTable: the hub's side of the table of assigned uids (embedded/UidTableLayout.h).
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>

#include "embedded/SharedMemory.h"
#include "embedded/UidTableLayout.h"

namespace binderhost::hub {

class UidTable {
public:
    /** Null when the kernel refuses. */
    [[nodiscard]] static std::unique_ptr<UidTable> make();

    /** Adds a process or changes its uid. False: there are too many with such a pid. */
    [[nodiscard]] bool put(pid_t pid, uid_t uid, uint64_t folder);
    void erase(pid_t pid);

    /** A descriptor of the file for somebody else, who can only read. Not ok() when there is none.
     */
    [[nodiscard]] android::base::unique_fd share() const;

private:
    explicit UidTable(android::base::unique_fd file);

    const android::base::unique_fd mFile;
    const SharedMemory<uidtable::Table> mTable;
};

}  // namespace binderhost::hub
