// SPDX-License-Identifier: Apache-2.0
// Processes of a headset that end though nobody has told them to.
#include "session/EndWatch.h"

#include <utility>

namespace sim {
namespace {

struct Watched {
    std::string name;
    ChildProcess* process;
    bool isApp;
};

std::vector<Watched> processesOf(Headset& headset) {
    std::vector<Watched> all;
    for (const Stack::Member& member : headset.stack().members())
        all.push_back({member.name, member.process, /*isApp=*/false});
    for (const std::string& name : headset.runningApps())
        all.push_back({name, &headset.app(name).process(), /*isApp=*/true});
    return all;
}

}  // namespace

std::vector<int> EndWatch::fds(Headset& headset) const {
    std::vector<int> fds;
    for (const Watched& each : processesOf(headset)) {
        if (!mTold.contains(each.process->pid())) fds.push_back(each.process->endFd());
    }
    return fds;
}

std::vector<EndWatch::Ended> EndWatch::take(Headset& headset) {
    std::vector<Ended> ended;
    std::set<pid_t> told;
    for (const Watched& each : processesOf(headset)) {
        ChildProcess& process = *each.process;
        if (process.running()) continue;
        told.insert(process.pid());
        if (mTold.contains(process.pid())) continue;
        ended.push_back({each.name, process.pid(), process.ending(), each.isApp});
    }
    mTold = std::move(told);
    return ended;
}

}  // namespace sim
