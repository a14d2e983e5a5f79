// SPDX-License-Identifier: Apache-2.0
//
// Process questions, answered by the kernel.
#include <osutils/Process.h>

#include <errno.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "ProcFs.h"

namespace NQS::OS {

namespace {

constexpr ProcFs kProcFs("/proc");

}  // namespace

std::optional<int> Process::getProcessUid(int pid) {
    // The folder alone would not do: the process file system answers for any thread's id.
    if (!isProcessAlive(pid)) return std::nullopt;
    return kProcFs.owner(pid);
}

std::string Process::getProcessName(int pid, bool full) {
    if (pid <= 0) return {};
    if (full) {
        std::string name = kProcFs.commandName(pid);
        if (!name.empty()) return name;
    }
    return kProcFs.shortName(pid);
}

bool Process::isProcessAlive(int pid) {
    if (pid <= 0) return false;
    // Signal 0 to "thread pid of process pid" finds main threads only, where kill() would accept
    // the id of any thread.
    const int saved = errno;
    const bool found = syscall(SYS_tgkill, pid, pid, /*signal=*/0) == 0 || errno == EPERM;
    errno = saved;
    return found;
}

}  // namespace NQS::OS
