// SPDX-License-Identifier: Apache-2.0
//
// Process questions on the device, where the kernel knows it all.
#include <osutils/KernelProcess.h>
#include <osutils/Process.h>

namespace NQS::OS {

std::optional<int> Process::getProcessUid(int pid) {
    const auto owner = KernelProcess::getOwner(pid);
    if (!owner) return std::nullopt;
    return owner->uid;
}

std::string Process::getProcessName(int pid, bool full) {
    return KernelProcess::getProcessName(pid, full);
}

bool Process::isProcessAlive(int pid) {
    return KernelProcess::isProcessAlive(pid);
}

}  // namespace NQS::OS
