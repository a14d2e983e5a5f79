// SPDX-License-Identifier: Apache-2.0
//
// Process file system.
//
// What is read below /proc, over a root of its own so that a folder made by hand can stand in.
// Pids are not judged here: the caller passes those of processes, greater than 0.
#pragma once

#include <osutils/KernelProcess.h>

#include <optional>
#include <string>

namespace NQS::OS {

class ProcFs {
public:
    /** `root` must outlive this object; it is "/proc" but in tests. */
    explicit constexpr ProcFs(const char* root) : mRoot(root) {}

    /**
     * The owner of the process's folder, which is its effective uid. The files inside would not
     * do: root owns them when the process is not dumpable. Empty when the folder is missing.
     */
    [[nodiscard]] std::optional<KernelProcess::Owner> owner(int pid) const;

    /** The first string of the command line; empty when there is none or no such process. */
    [[nodiscard]] std::string commandName(int pid) const;

    /**
     * The kernel's short name, at most 15 bytes; empty when there is no such process. Taken from
     * the file that holds nothing else: in "stat" the name may contain what ends it.
     */
    [[nodiscard]] std::string shortName(int pid) const;

    /**
     * What an open file holds from its start to the first `end` byte, or all of it. Empty when it
     * cannot be read: a process may go at any moment, and its files with it.
     */
    [[nodiscard]] static std::optional<std::string> readUntil(int fd, char end);

private:
    const char* mRoot;
};

}  // namespace NQS::OS
