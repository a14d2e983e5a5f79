// SPDX-License-Identifier: Apache-2.0
//
// KernelBinder: what the kernel's binder module knows of a session's processes: whether something
// is in flight, and who watches whom.
//
// Read from the module's debug files, which only root may read, where debugfs is mounted. They tell
// of all processes together: others that use binder meanwhile are in flight, too.
//
// The file "state" is written process by process. Something that moves from one that is not written
// yet to one that was would be missed; so its text counts only if the module has counted nothing
// between a reading of "stats" before it and one after.
//
//      stats ─▶ state ─▶ stats      the same twice, and the state holds nothing: at rest
//
// One thread.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace sim {

class KernelBinder {
public:
    /** Null where the files cannot be read. */
    [[nodiscard]] static std::unique_ptr<KernelBinder> open(
            const std::string& folder = "/sys/kernel/debug/binder");

    /** What is in flight, but for what waits for one of those left out; empty: nothing is. Absent:
     *  the files could not be read, or something moved meanwhile. */
    [[nodiscard]] std::optional<std::string> inFlight(const std::set<pid_t>& leftOut) const;
    /** Whether one has asked to be told of the end of a node of the other. */
    [[nodiscard]] bool watches(pid_t watcher, pid_t watched) const;

private:
    explicit KernelBinder(std::string folder) : mFolder(std::move(folder)) {}

    const std::string mFolder;
};

/** A line of the state that tells of something in flight, and whose it is; empty: there is none.
 *  A process that has ended and is still there has news of its end under way. */
[[nodiscard]] std::string inFlightIn(const std::string& state, const std::set<pid_t>& leftOut,
                                     const std::function<bool(pid_t)>& isAlive);
[[nodiscard]] bool watchesIn(const std::string& state, pid_t watcher, pid_t watched);

}  // namespace sim
