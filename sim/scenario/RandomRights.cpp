// SPDX-License-Identifier: Apache-2.0
// Who may call what, as far as random scenarios can know it for sure.
#include "scenario/RandomRights.h"

namespace sim::scenario {
namespace {

constexpr int kTrustedUid = 1041;

}  // namespace

std::vector<std::string> RandomRights::packages() const {
    std::vector<std::string> names;
    for (const auto& [name, package] : mPackages)
        names.push_back(name);
    return names;
}

RandomRights::Answer RandomRights::answerTo(int uid, const std::string& process,
                                            const std::string& permission, bool canAsk) const {
    if (uid == kTrustedUid) return Answer::Granted;
    if (uid == 0) return Answer::Unknown;
    int packages = 0;
    bool everHeld = false;
    bool alwaysHeld = true;
    for (const auto& [name, package] : mPackages) {
        if (package.uid != uid) continue;
        ++packages;
        everHeld = everHeld || package.isForeign || package.everHeld.contains(permission);
        alwaysHeld = alwaysHeld && package.alwaysHeld.contains(permission) &&
                     name == process.substr(0, process.find(':'));
    }
    if (!everHeld) return Answer::Refused;
    const bool isGranted = packages == 1 && alwaysHeld && canAsk;
    return isGranted && !mMaybeDenied.contains({uid, permission}) ? Answer::Granted
                                                                  : Answer::Unknown;
}

}  // namespace sim::scenario
