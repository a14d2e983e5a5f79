// SPDX-License-Identifier: Apache-2.0
//
// Assignments: the uids that the hub's launcher has given to its processes.
//
//      assign ──▶ assigned ── reassign, connected ──▶ another uid waits ── last connection ends ─┐
//                    ▲ │                                                                         │
//                    │ └─ reassign, not connected ─▶ at once                                     │
//                    └───────────────────────────────────────────────────────────────────────────┘
//
// Each is bound to its very process: by a pidfd, and by the folder below /proc that is held open,
// whose inode number is therefore no other process's. It lasts until the process has been reaped:
// what has ended keeps its uid until then, as with the kernel, and its pid is nobody else's.
//
// Who may be given one: see check(). That an asker may assign at all is for the caller to know.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <memory>
#include <optional>
#include <unordered_map>

#include "driver/HubControl.h"
#include "hub/UidTable.h"

namespace binderhost::hub {

class Assignments {
public:
    using Status = HubControl::Status;

    /** Null when the kernel refuses. For children of the launcher that run as the owner. */
    [[nodiscard]] static std::unique_ptr<Assignments> make(pid_t launcher, uid_t owner);

    /** connected: it has opened the driver. */
    [[nodiscard]] Status assign(pid_t pid, uid_t uid, bool connected);
    [[nodiscard]] Status reassign(pid_t pid, uid_t uid, bool connected);

    /** Of the process that has the pid now. */
    [[nodiscard]] std::optional<uid_t> uidOf(pid_t pid) const;
    /** A descriptor that tells of the end of the process; not ok() when there is none. */
    [[nodiscard]] android::base::unique_fd endOf(pid_t pid) const;

    /** The process's last connection has ended. */
    void disconnected(pid_t pid);
    /** It has ended: forgotten as soon as its parent has taken note of that. */
    void ended(pid_t pid);

    [[nodiscard]] const UidTable& table() const { return *mTable; }
    [[nodiscard]] size_t size() const { return mEntries.size(); }

private:
    struct Entry {
        android::base::unique_fd process;
        android::base::unique_fd folder;
        uint64_t number = 0;  // of the folder
        uid_t uid = 0;
        std::optional<uid_t> next;
        bool ended = false;
    };

    Assignments(pid_t launcher, uid_t owner, std::unique_ptr<UidTable> table)
          : mLauncher(launcher), mOwner(owner), mTable(std::move(table)) {}

    /** Finds out whether the process may have one, and opens what it is known by. */
    [[nodiscard]] Status check(pid_t pid, Entry* out) const;
    /** The entry of the process that has the pid now, or null. */
    [[nodiscard]] Entry* find(pid_t pid);
    void sweep();

    const pid_t mLauncher;
    const uid_t mOwner;
    const std::unique_ptr<UidTable> mTable;
    std::unordered_map<pid_t, Entry> mEntries;
    /** How many have ended and are still there. */
    size_t mEnded = 0;
};

}  // namespace binderhost::hub
