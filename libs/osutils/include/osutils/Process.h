// SPDX-License-Identifier: Apache-2.0
//
// Process questions.
//
// Problem: a service knows its callers by pid only and must find out who they are, at every
// decision. So each question costs as few system calls as it can: one, of a process that was asked
// about before. For that two descriptors of each known process stay open, close-on-exec, in at most
// half of the descriptors that the soft limit allows, and in no more than 4096.
//
// Limits: the answer is that of the moment. A pid may be reused as soon as its process was reaped;
// who keeps what it learnt about a pid compares the uid. Processes that the process file system
// hides from this one (mount option hidepid) have neither uid nor name.
//
// Threads: any. A forked child starts without what its parent kept, and keeps nothing itself.
#pragma once

#include <optional>
#include <string>

namespace NQS::OS {

class Process {
public:
    Process() = delete;

    /**
     * The effective uid of a process. Empty when there is no such process: pids of 0 and less, and
     * the ids of threads other than a process's first, name none.
     */
    [[nodiscard]] static std::optional<int> getProcessUid(int pid);

    /**
     * The name of a process; empty when there is none under this pid.
     *
     * With `full`, the first string of its command line, of any length, as the process may have
     * rewritten it; when that is empty (kernel threads, zombies, a process that is being
     * replaced), the short name. Without `full`, always the short name: that of the main thread,
     * at most 15 bytes.
     *
     * The bytes are the process's own choice: not trustworthy, and not always valid UTF-8.
     */
    [[nodiscard]] static std::string getProcessName(int pid, bool full);

    /**
     * Whether a process has this pid now, whoever owns it. One that has ended stays alive until
     * its parent has reaped it. False for pids of 0 and less and for ids of other threads.
     */
    [[nodiscard]] static bool isProcessAlive(int pid);
};

}  // namespace NQS::OS
