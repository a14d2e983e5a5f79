// SPDX-License-Identifier: Apache-2.0
//
// Process questions on the host: the kernel's answers, but for uids where the session's hub vouches
// for them.
//
//      pid ─▶ kernel: uid, which process ─▶ hub's table: which uid has this very process?
//
// Liveness and names stay the kernel's. The table is fetched at the first question, once, from the
// hub that BINDER_DRIVER names; where there is none, or a device, the kernel's answers are all.
#include <driver/AssignedUids.h>
#include <driver/Driver.h>
#include <osutils/KernelProcess.h>
#include <osutils/Process.h>

#include <memory>

namespace NQS::OS {

namespace {

/** Null where nobody vouches for anyone. Never destroyed, as threads may ask until the very end. */
const binderhost::AssignedUids* assignedUids() {
    static const binderhost::AssignedUids* const kUids =
            [] {
                const std::string path = binderhost::driverPath();
                if (binderhost::namesDevice(path))
                    return std::unique_ptr<const binderhost::AssignedUids>();
                // Whoever needs the hub says what is wrong with it.
                std::string unsaid;
                return binderhost::AssignedUids::open(path, &unsaid);
            }()
                    .release();
    return kUids;
}

}  // namespace

std::optional<int> Process::getProcessUid(int pid) {
    const binderhost::AssignedUids* const uids = assignedUids();
    auto owner = KernelProcess::getOwner(pid);
    while (uids != nullptr && owner) {
        if (const auto uid = uids->of(pid, owner->folder)) return static_cast<int>(*uid);
        // A row goes after its process: what is there after the look has had none.
        const auto later = KernelProcess::getOwner(pid);
        if (later && later->folder == owner->folder) return binderhost::AssignedUids::kOthersUid;
        owner = later;
    }
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
