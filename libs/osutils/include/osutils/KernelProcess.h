// SPDX-License-Identifier: Apache-2.0
//
// Process questions, answered by the kernel.
//
// Behind <osutils/Process.h>, which services use: there the same questions may have other answers
// where something else than the kernel knows processes too.
//
// Problem: a service knows its callers by pid only and must find out who they are, at every
// decision. So each question costs as few system calls as it can: one, of a process that was asked
// about before. For that two descriptors of each known process stay open, close-on-exec, in at most
// half of the descriptors that the soft limit allows, and in no more than 4096.
//
// Threads: any. A forked child starts without what its parent kept, and keeps nothing itself.
#pragma once

#include <stdint.h>

#include <optional>
#include <string>

namespace NQS::OS {

class KernelProcess {
public:
    KernelProcess() = delete;

    struct Owner {
        /** The effective one. */
        int uid = 0;
        /**
         * Inode number of the process's folder below /proc: no other process's while anybody
         * holds that folder open.
         */
        uint64_t folder = 0;

        bool operator==(const Owner&) const = default;
    };

    /** As Process::getProcessUid(). */
    [[nodiscard]] static std::optional<Owner> getOwner(int pid);
    /** As in Process. */
    [[nodiscard]] static std::string getProcessName(int pid, bool full);
    /** As in Process. */
    [[nodiscard]] static bool isProcessAlive(int pid);
};

}  // namespace NQS::OS
