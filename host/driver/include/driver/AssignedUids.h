// SPDX-License-Identifier: Apache-2.0
//
// The uids that a hub vouches for, by pid.
//
// Problem: in a session all processes have one uid of the kernel's; the one that counts is the one
// that the hub was told (driver/HubControl.h). Callers' uids come with their calls; whoever knows
// no more than a pid asks here. An answer is a few reads of shared memory.
//
// A process that the hub was told nothing about has kOthersUid: the kernel's uid could be that of
// one of those whom the hub vouches for, or the system's.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace binderhost {

namespace uidtable {
struct Table;
}

class AssignedUids {
public:
    /** The platform's, of what a person runs from a command line. */
    static constexpr uid_t kOthersUid = 2000;

    /**
     * Of the hub whose socket is at the path. Null with a message when no hub answers there, or
     * none that assigns uids. A mapping of half a MiB, no descriptor; forked children keep it.
     */
    [[nodiscard]] static std::unique_ptr<const AssignedUids> open(const std::string& path,
                                                                  std::string* error);
    ~AssignedUids();
    AssignedUids(const AssignedUids&) = delete;
    AssignedUids& operator=(const AssignedUids&) = delete;

    /**
     * The uid assigned to the process with this pid and this inode number of /proc/PID; none when
     * the hub vouches for no such process. A process that has ended keeps its own until it is
     * reaped, as with the kernel. Any thread.
     */
    [[nodiscard]] std::optional<uid_t> of(pid_t pid, uint64_t folder) const;

    /** The uid under which this process's calls arrive. */
    [[nodiscard]] uid_t ofThisProcess() const;

private:
    explicit AssignedUids(const uidtable::Table* table) : mTable(table) {}

    const uidtable::Table* const mTable;
};

}  // namespace binderhost
