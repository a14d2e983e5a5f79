// SPDX-License-Identifier: Apache-2.0
#include "hub/Identity.h"

#include <linux/capability.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <sstream>
#include <string>

namespace binderhost::hub {

bool Identity::cannotChange(uid_t uid) const {
    if (mGiven) return true;
    std::ifstream status("/proc/" + std::to_string(mPid) + "/status");
    bool same = false;
    bool powerless = false;
    for (std::string line; std::getline(status, line);) {
        std::istringstream words(line);
        std::string name;
        words >> name;
        if (name == "Uid:") {
            std::array<uid_t, 4> all{};  // real, effective, saved, of the file system
            for (uid_t& each : all)
                words >> each;
            same = words &&
                   std::all_of(all.begin(), all.end(), [uid](uid_t each) { return each == uid; });
        } else if (name == "CapPrm:") {
            uint64_t permitted = ~uint64_t{0};
            words >> std::hex >> permitted;
            powerless = words && (permitted & (uint64_t{1} << CAP_SETUID)) == 0;
        }
    }
    return same && powerless;
}

}  // namespace binderhost::hub
