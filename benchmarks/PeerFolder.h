// SPDX-License-Identifier: Apache-2.0
//
// A folder for a benchmark's sockets, which goes with the process that made it.
#pragma once

#include <sys/types.h>

#include <string>

class PeerFolder {
public:
    /** Ends the benchmark on failure. */
    PeerFolder();
    /** Removes it and all that is in it; nothing in a forked child. */
    ~PeerFolder();
    PeerFolder(const PeerFolder&) = delete;
    PeerFolder& operator=(const PeerFolder&) = delete;

    std::string file(const std::string& name) const { return mPath + "/" + name; }

private:
    const pid_t mOwner;
    std::string mPath;
};
