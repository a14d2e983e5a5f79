// SPDX-License-Identifier: Apache-2.0
//
// Who may call what, as far as random scenarios can know it for sure.
//
// The daemon's runtime remembers each answer of the permission manager, per uid, until the daemon
// ends: a permission that comes or goes later changes what is answered only sometimes. One thread.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace sim::scenario {

class RandomRights {
public:
    enum class Answer { Granted, Refused, Unknown };

    void install(const std::string& package, int uid, const std::set<std::string>& permissions) {
        mPackages.try_emplace(package, Package{uid, /*isForeign=*/false, permissions, permissions});
    }
    /** One whose permissions are not known. */
    void installForeign(const std::string& package, int uid) {
        mPackages.try_emplace(package, Package{uid, /*isForeign=*/true, {}, {}});
    }
    void allow(const std::string& package, const std::string& permission) {
        mPackages.at(package).everHeld.insert(permission);
    }
    void deny(const std::string& package, const std::string& permission) {
        mPackages.at(package).alwaysHeld.erase(permission);
    }
    void daemonEnds() { mMaybeDenied.clear(); }

    [[nodiscard]] bool isInstalled(const std::string& package) const {
        return mPackages.contains(package);
    }
    [[nodiscard]] bool isInstalledFor(const std::string& package, int uid) const {
        return isInstalled(package) && mPackages.at(package).uid == uid;
    }
    [[nodiscard]] std::vector<std::string> packages() const;

    /** What a process is answered; canAsk: the permission manager is there. */
    [[nodiscard]] Answer answerTo(int uid, const std::string& process,
                                  const std::string& permission, bool canAsk) const;
    /** A call was made to which the answer may have been no. */
    void mayBeDenied(int uid, const std::string& permission) {
        mMaybeDenied.insert({uid, permission});
    }

private:
    struct Package {
        int uid = 0;
        bool isForeign = false;
        std::set<std::string> everHeld;    // permissions, by short name
        std::set<std::string> alwaysHeld;  // since its installation
    };

    std::map<std::string, Package> mPackages;
    std::set<std::pair<int, std::string>> mMaybeDenied;  // uid, permission
};

}  // namespace sim::scenario
