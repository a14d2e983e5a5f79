// SPDX-License-Identifier: Apache-2.0
//
// Session: a hub and a service manager of a test's own.
#pragma once

#include <android-base/file.h>

#include <optional>
#include <string>

#include "Program.h"

namespace servicemanager::test {

class Session {
public:
    /**
     * Starts both, at a socket in a folder of its own, and points BINDER_DRIVER there, for this
     * process and those it starts. On a device no hub is started. `programs`: the folder of the
     * built programs.
     */
    explicit Session(const std::string& programs);

    /** The hub stays up until the test process ends: a process that loses its hub ends at once. */
    ~Session() {
        if (mHub) mHub->leaveToParentsEnd();
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    [[nodiscard]] const std::string& driver() const { return mDriver; }

private:
    TemporaryDir mFolder;
    const std::string mDriver;
    std::optional<Program> mHub;
    Program mServiceManager;
};

}  // namespace servicemanager::test
