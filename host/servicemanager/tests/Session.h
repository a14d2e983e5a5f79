// SPDX-License-Identifier: Apache-2.0
//
// Session: a hub and a service manager of a test's own.
#pragma once

#include <android-base/file.h>

#include <string>

#include "Program.h"

namespace servicemanager::test {

class Session {
public:
    /**
     * Starts both, at a socket in a folder of its own, and points BINDER_DRIVER there, for this
     * process and those it starts. `programs`: the folder of the built programs.
     */
    explicit Session(const std::string& programs);

    /** The hub stays up until the test process ends: a process that loses its hub ends at once. */
    ~Session() { mHub.leaveToParentsEnd(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    [[nodiscard]] std::string socket() const { return std::string(mFolder.path) + "/hub"; }

private:
    TemporaryDir mFolder;
    Program mHub;
    Program mServiceManager;
};

}  // namespace servicemanager::test
