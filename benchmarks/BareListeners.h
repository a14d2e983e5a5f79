// SPDX-License-Identifier: Apache-2.0
//
// The anchor of notifications: a message sent straight to each of many processes.
#pragma once

#include <sys/types.h>

#include <vector>

#include "FanoutRound.h"

class BareListeners {
public:
    /** Starts them, before the first thread is. Ends the benchmark on failure. */
    BareListeners(int count, FanoutRound& round);
    ~BareListeners();
    BareListeners(const BareListeners&) = delete;
    BareListeners& operator=(const BareListeners&) = delete;

    /** A whole round, to the first so many of them. False when a message got lost. */
    [[nodiscard]] bool notify(int count) const;

private:
    FanoutRound& mRound;
    std::vector<int> mSockets;
    std::vector<pid_t> mProcesses;
};
