// SPDX-License-Identifier: Apache-2.0
//
// Process questions, answered by the kernel.
//
// Behind <osutils/Process.h>, which services use: there the same questions may have other answers
// where something else than the kernel knows processes too.
//
// Cost, limits and threads are those that Process.h tells: they come from here.
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

    /** Empty when there is no such process: pids of 0 and less, and ids of other threads. */
    [[nodiscard]] static std::optional<Owner> getOwner(int pid);
    /** See Process::getProcessName(). */
    [[nodiscard]] static std::string getProcessName(int pid, bool full);
    /** See Process::isProcessAlive(). */
    [[nodiscard]] static bool isProcessAlive(int pid);
};

}  // namespace NQS::OS
