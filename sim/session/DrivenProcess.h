// SPDX-License-Identifier: Apache-2.0
//
// A child process with a control channel: a simulated service or app, seen from the controller.
#pragma once

#include <json/value.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "process/ChildProcess.h"
#include "process/LineChannel.h"
#include "session/StopSignals.h"

namespace sim {

/** A request for an operation, to which its arguments are added. */
[[nodiscard]] Json::Value operation(const std::string& op);

class DrivenProcess {
public:
    /** stops may be null: then nothing but an answer or the time ends a wait. It outlives this. */
    DrivenProcess(std::string name, std::unique_ptr<ChildProcess> process, LineChannel channel,
                  StopSignals* stops)
          : mName(std::move(name)),
            mProcess(std::move(process)),
            mChannel(std::move(channel)),
            mStops(stops) {}

    /**
     * Sends a request and waits for its answer. SessionError when the process has ended, does not
     * answer in time, or answers with an "error"; SessionStopped when the person wants to stop.
     * An answer that comes after its time is dropped by the next request.
     */
    Json::Value request(Json::Value request, std::chrono::milliseconds timeout);

    /** Sends a request whose answer nobody waits for. */
    void post(Json::Value request);

    /** Whether the process has read every request, and so is at work on the last one or beyond. */
    [[nodiscard]] bool tookAll() const;

    /** Waits for {"event": name}; fails as request() does. */
    void awaitEvent(const std::string& name, std::chrono::milliseconds timeout);

    [[nodiscard]] const std::string& name() const { return mName; }
    void rename(std::string name) { mName = std::move(name); }
    [[nodiscard]] ChildProcess& process() { return *mProcess; }
    [[nodiscard]] int pid() const { return mProcess->pid(); }

private:
    [[nodiscard]] Json::Value next(LineChannel::Deadline deadline, const std::string& awaited);
    void send(Json::Value& request);

    std::string mName;
    const std::unique_ptr<ChildProcess> mProcess;
    LineChannel mChannel;
    StopSignals* const mStops;
    int mLastId = 0;
};

}  // namespace sim
