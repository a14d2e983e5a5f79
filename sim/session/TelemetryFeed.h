// SPDX-License-Identifier: Apache-2.0
//
// The telemetry of a session, as the tool `telemetry --follow --json` prints it while it runs.
//
// One thread. Errors as Stack's.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>
#include <vector>

#include "process/ChildProcess.h"
#include "process/LineChannel.h"
#include "session/Hearing.h"
#include "session/Stack.h"

namespace sim {

class TelemetryFeed {
public:
    /** Starts the tool. The stack has booted, and outlives this object. */
    explicit TelemetryFeed(Stack& stack);

    /** Waits until that many more events have been printed. SessionError when they never are. */
    [[nodiscard]] std::vector<Json::Value> await(size_t count);

    /** All events of the session so far, asked of a tool that does not follow. */
    [[nodiscard]] size_t countAll();

    /** "immersive_app_update: top com.a, immersive com.a (pid 5, uid 10050)". */
    [[nodiscard]] static std::string text(const Json::Value& event);

    /** What an event that reports this is decoded to, its time apart. */
    [[nodiscard]] static Json::Value expected(const Told& told);
    /** Empty when the event is the one that is due; else both. */
    [[nodiscard]] static std::string difference(const Told& due, Json::Value event);

private:
    Stack& mStack;
    std::unique_ptr<LineChannel> mLines;
    std::unique_ptr<ChildProcess> mTool;
};

}  // namespace sim
