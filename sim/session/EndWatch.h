// SPDX-License-Identifier: Apache-2.0
//
// Processes of a headset that end though nobody has told them to: fds() to wait for, take() to
// learn who it was.
//
// One thread.
#pragma once

#include <sys/types.h>

#include <set>
#include <string>
#include <vector>

#include "session/Headset.h"

namespace sim {

class EndWatch {
public:
    struct Ended {
        std::string name;
        pid_t pid = 0;
        std::string ending;  // as ChildProcess says it
        bool isApp = false;

        [[nodiscard]] std::string text() const {
            return name + " (pid " + std::to_string(pid) + ") has ended (" + ending + ")";
        }
    };

    /** One is readable when a process has ended that take() has not named. Until the headset
     *  starts or ends something. */
    [[nodiscard]] std::vector<int> fds(Headset& headset) const;

    /** Those that have ended since the last look, once each. They stay in the headset's books. */
    [[nodiscard]] std::vector<Ended> take(Headset& headset);

private:
    std::set<pid_t> mTold;  // of processes that are still in the books
};

}  // namespace sim
