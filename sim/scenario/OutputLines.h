// SPDX-License-Identifier: Apache-2.0
//
// Lines to a program that may read slowly, or go away: each is handed over before write() returns,
// and a wish to stop is heard also while nobody reads.
#pragma once

#include <string>

#include "session/StopSignals.h"

namespace sim::scenario {

class OutputLines {
public:
    /** The descriptor stays the caller's; the signals outlive this object. */
    OutputLines(int fd, StopSignals& stops) : mFd(fd), mStops(stops) {}

    /** A line without its end. SessionStopped when told to stop, or when the reader has gone;
     *  SessionError when it cannot be written for another reason. */
    void write(const std::string& line);

private:
    const int mFd;
    StopSignals& mStops;
};

}  // namespace sim::scenario
