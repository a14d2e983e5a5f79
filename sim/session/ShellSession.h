// SPDX-License-Identifier: Apache-2.0
//
// A headset to look into: some apps, one of them in front and rendering, two that listen; and a
// person's shell inside it.
//
// What the person does to the headset's processes is taken as what happens to a headset: an app
// that ends has crashed, and the platform tells so. Everything that ends is said in a line. The
// session ends with the shell.
//
// One thread. Errors as Headset's.
#pragma once

#include <string>
#include <vector>

#include "session/Headset.h"
#include "session/Timeline.h"

namespace sim {

class ShellSession {
public:
    /** All outlive this object. The headset is not booted yet; command empty: a shell. */
    ShellSession(Headset& headset, Timeline& timeline, const std::vector<std::string>& command);

    /** Apps come up, and the daemon has answered as it must. The headset has been booted. */
    void prepare();
    /** What runs, and for somebody who types also what to try. */
    void introduce();
    /** Runs the shell to its end; the exit status of it. */
    int run();

private:
    void sayWhoHasEnded();
    void appHasEnded(const std::string& name);
    void memberHasEnded(const Stack::Member& member);

    Headset& mHeadset;
    Timeline& mTimeline;
    const std::vector<std::string>& mCommand;
    std::vector<int> mEnded;  // pids of members that were told of
};

}  // namespace sim
