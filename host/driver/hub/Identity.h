// SPDX-License-Identifier: Apache-2.0
//
// Who sent a frame, as the kernel attests it.
//
// Problem: the credentials of a connection are frozen when it is made; a process may change its
// uid later, or hand the socket to a child. So each frame carries credentials that the kernel
// checks at the time of sending, and the pid must still be the one that opened the process.
//
// In a hub that is controlled the uid is the one that the launcher has assigned to the process
// (hub/Assignments.h), or the one of all that have none; else the kernel's. Both are decided here
// and nowhere else.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <optional>

namespace binderhost::hub {

class Identity {
public:
    /** given: what the process has instead of the kernel's uid, for good. */
    explicit Identity(pid_t pid, std::optional<uid_t> given = {}) : mPid(pid), mGiven(given) {}

    /** The caller's uid, or none: the frame is not from this process. */
    [[nodiscard]] std::optional<uid_t> attest(const std::optional<ucred>& credentials) const {
        if (!credentials || credentials->pid != mPid) return std::nullopt;
        return mGiven.value_or(credentials->uid);
    }

    [[nodiscard]] pid_t pid() const { return mPid; }

    /**
     * True when the process's uid was given to it, or when it has this uid of the kernel's only and
     * may take no other: what it says later without a frame is then said under that one as well.
     * Looks into /proc, by when the uid that a frame was stamped with may be another's: the process
     * has dropped it, or only one of its threads had it.
     */
    [[nodiscard]] bool cannotChange(uid_t uid) const;

private:
    pid_t mPid;
    std::optional<uid_t> mGiven;
};

}  // namespace binderhost::hub
