// SPDX-License-Identifier: Apache-2.0
// The telemetry of a session.
#include "session/TelemetryFeed.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "session/SessionError.h"

namespace sim {
TelemetryFeed::TelemetryFeed(Stack& stack) : mStack(stack) {
    auto ends = LineChannel::makePair();
    if (!ends) throw SessionError(std::string("socketpair: ") + strerror(errno));
    mLines = std::make_unique<LineChannel>(std::move(ends->first));
    mTool = mStack.startTool({"telemetry", "--follow", "--json"}, ends->second.fd());
}

Json::Value TelemetryFeed::takePrinted() {
    Json::Value taken(Json::objectValue);
    taken["heard"] = Json::arrayValue;
    Json::Value event;
    do {
        mLast = mLines->receive(&event, std::chrono::steady_clock::now());
        if (mLast == LineChannel::Read::Message) taken["heard"].append(event);
    } while (mLast == LineChannel::Read::Message);
    return taken;
}

void TelemetryFeed::check() {
    if (mLast == LineChannel::Read::Malformed) {
        throw SessionError("telemetry --follow printed a line that is no JSON object");
    }
    if (mLast != LineChannel::Read::Closed) return;
    // The descriptor closes a moment before the process can be reaped.
    mTool->kill();
    throw SessionError("telemetry --follow has ended (" + mTool->ending() + ")");
}

size_t TelemetryFeed::countAll() {
    const Stack::ToolRun run = mStack.runTool({"telemetry", "--json"});
    if (run.status != 0) throw SessionError("telemetry --json failed: " + run.output);
    return static_cast<size_t>(std::count(run.output.begin(), run.output.end(), '\n'));
}

}  // namespace sim
