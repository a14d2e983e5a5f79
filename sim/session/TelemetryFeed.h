// SPDX-License-Identifier: Apache-2.0
//
// The telemetry of a session, as the tool `telemetry --follow --json` prints it while it runs.
//
// One thread. Errors as Stack's.
#pragma once

#include <json/value.h>

#include <memory>

#include "process/ChildProcess.h"
#include "process/LineChannel.h"
#include "session/Stack.h"

namespace sim {

class TelemetryFeed {
public:
    /** Starts the tool. The stack has booted, and outlives this object. */
    explicit TelemetryFeed(Stack& stack);

    /** Those that have been printed by now, as {"heard": [events]}. Does not wait. */
    [[nodiscard]] Json::Value takePrinted();
    /** SessionError when no more can be printed, since the tool has ended or has printed what is no
     *  event: takePrinted() then brings none. */
    void check();

    /** All events of the session so far, asked of a tool that does not follow. */
    [[nodiscard]] size_t countAll();

private:
    Stack& mStack;
    std::unique_ptr<LineChannel> mLines;
    std::unique_ptr<ChildProcess> mTool;
    LineChannel::Read mLast = LineChannel::Read::TimedOut;  // what was read last
};

}  // namespace sim
