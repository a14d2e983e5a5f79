// SPDX-License-Identifier: Apache-2.0
//
// Focus oracle: the focus rules a second time, as plainly as they can be said.
//
// Written against the rules alone and sharing nothing with the policy: a world of plain values in,
// answers out. Random worlds go through both; where they differ, one of them is wrong.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace oracle {

using Id = std::pair<int, int>;  // uid, pid

struct Proc {
    Id id;
    std::string name, package;
    std::set<int> background;  // focus types
};

struct World {
    std::vector<Proc> alive;  // ascending by id; a process that is not here has no record
    std::vector<Id> foreground, rendering;
    std::set<Id> panels, top, allTop;
    Id window{0, 0};
    std::string primary;  // the platform's answer for the primary display
    bool mainDisplay = true, debuggable = false, permissive = false;

    const Proc* find(int pid) const {
        for (const Proc& proc : alive) {
            if (proc.id.second == pid) return &proc;
        }
        return nullptr;
    }
};

inline std::string topActivity(const World& w) {
    std::string answer = w.primary;
    for (const Id& id : w.foreground) {
        if (w.find(id.second)) answer = w.find(id.second)->package;
    }
    return answer;
}

inline const Proc* immersive(const World& w) {
    const std::set<std::string> overlays = {"system_server", "com.velmar.vralertservice",
                                            "com.velmar.os.vrlockscreen", "com.android.settings"};
    const std::string top = topActivity(w);
    const Proc *overlay = nullptr, *shell = nullptr, *app = nullptr;
    for (const Id& id : w.rendering) {
        const Proc* proc = w.find(id.second);
        if (!proc) continue;
        const bool focused = w.window.second == id.second;
        if (!overlay && focused && overlays.count(proc->name)) overlay = proc;
        if (!app && proc->name == top) app = proc;
    }
    for (const Proc& proc : w.alive) {
        if (!shell && proc.package == "com.velmar.shellenv") shell = &proc;
    }
    if (shell && shell->name != top && shell->package != top) shell = nullptr;
    return overlay ? overlay : shell ? shell : app;
}

inline bool hasFocus(const World& w, int type, const Proc& proc, const Proc* firstOfImmersivePid) {
    if (proc.background.count(type)) return true;
    if (w.debuggable && w.permissive) return true;
    if (type != 0 && type != 1) return false;
    if (type == 1 && firstOfImmersivePid == &proc) return w.mainDisplay;
    bool seen = w.panels.count(proc.id) || w.top.count(proc.id);
    for (const Id& id : w.foreground)
        seen = seen || id == proc.id;
    if (type == 1) return seen;
    const Proc* newest = nullptr;
    for (const Id& id : w.foreground)
        newest = w.find(id.second) ? w.find(id.second) : newest;
    return seen || w.window == proc.id || newest == &proc || w.allTop.count(proc.id);
}

/** (pid, verdict) of the known ones among `pids`, in the order of the answer. */
inline std::vector<std::pair<int, bool>> verdicts(const World& w, int type,
                                                  const std::vector<int>& pids) {
    std::vector<std::pair<int, bool>> answer;
    for (const Proc& proc : w.alive) {
        bool asked = false;
        for (const int pid : pids)
            asked = asked || pid == proc.id.second;
        if (asked) answer.emplace_back(proc.id.second, hasFocus(w, type, proc, immersive(w)));
    }
    return answer;
}

}  // namespace oracle
