// SPDX-License-Identifier: Apache-2.0
//
// Process questions, answered by the kernel.
#include <errno.h>
#include <osutils/KernelProcess.h>
#include <pthread.h>
#include <time.h>

#include <atomic>

#include "KeptProcesses.h"
#include "ProcFs.h"

namespace NQS::OS {

namespace {

constexpr const char* kRoot = "/proc";
constexpr ProcFs kProcFs(kRoot);

/** No kernel gives a higher pid; and a clock's id, which holds a pid, has room for little more. */
constexpr int kHighestPid = 1 << 22;

/** Set in a child whose parent kept processes. */
std::atomic<bool> gForked{false};

/**
 * The kept processes, or null in a forked child: it may have closed the descriptors, and their
 * numbers may mean other files by now. Never destroyed, as threads may ask until the very end.
 */
KeptProcesses* keptProcesses() {
    static KeptProcesses* const kKept = [] {
        pthread_atfork(/*prepare=*/nullptr, /*parent=*/nullptr, [] { gForked = true; });
        return new KeptProcesses(kRoot);
    }();
    return gForked ? nullptr : kKept;
}

}  // namespace

std::optional<KernelProcess::Owner> KernelProcess::getOwner(int pid) {
    if (pid <= 0) return std::nullopt;
    if (KeptProcesses* const kept = keptProcesses()) {
        if (const auto owner = kept->owner(pid)) return owner;
        if (const auto owner = kept->keep(pid, isProcessAlive)) return owner;
    }
    // The folder alone would not do: the process file system answers for any thread's id.
    if (!isProcessAlive(pid)) return std::nullopt;
    return kProcFs.owner(pid);
}

std::string KernelProcess::getProcessName(int pid, bool full) {
    if (pid <= 0) return {};
    if (full) {
        if (KeptProcesses* const kept = keptProcesses()) {
            std::string name = kept->commandName(pid);
            if (!name.empty()) return name;
        }
        std::string name = kProcFs.commandName(pid);
        if (!name.empty()) return name;
    }
    return kProcFs.shortName(pid);
}

bool KernelProcess::isProcessAlive(int pid) {
    if (pid <= 0 || pid > kHighestPid) return false;
    // Only processes have a processor-time clock, where kill() would accept the id of any thread;
    // the kernel looks the pid up and no further, which no rule about signals can refuse.
    const int saved = errno;
    clockid_t clock;
    const int error = clock_getcpuclockid(pid, &clock);
    const bool found = error == 0 || error == EPERM;
    if (!found) {
        if (KeptProcesses* const kept = keptProcesses()) kept->drop(pid);
    }
    errno = saved;
    return found;
}

}  // namespace NQS::OS
