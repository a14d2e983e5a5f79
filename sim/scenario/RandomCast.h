// SPDX-License-Identifier: Apache-2.0
//
// Who appears in random scenarios: one of each kind that the focus rules tell apart.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace sim::scenario {

struct Role {
    std::string name;
    int uid = 0;
    std::string process;                // command line name; of a native process its path
    std::vector<std::string> packages;  // of its uid; none: a native process
    std::string permissions;            // with commas; "?": drawn
    [[nodiscard]] bool isNative() const { return packages.empty(); }
};

[[nodiscard]] const std::vector<Role>& randomCast();

/** Roles whose windows lie over others': what they render and whose the window is counts. */
[[nodiscard]] const std::set<std::string>& randomOverlays();

/** Names that a process may take while it runs. */
[[nodiscard]] const std::vector<std::string>& randomProcessNames();

/** Packages that are installed while others run: each makes a shared uid of somebody's uid. */
[[nodiscard]] const std::vector<std::string>& randomPackages();

}  // namespace sim::scenario
