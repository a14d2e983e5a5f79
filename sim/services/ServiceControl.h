// SPDX-License-Identifier: Apache-2.0
//
// The control side of a simulated service process.
//
// Operations, each a line {"id": N, "op": ...} that is answered by a line with the same id:
//
//      world          {"world": {...}}                   replaces the service's copy of the world
//      publish        {"milliseconds": M}                the service is to be published after M
//      tell           {"notice": {...}}                  {"sent": [{"notice": {...}, "told": N}]}
//      fault          {"plan": {...}}                    {"sent": as above}
//      awaitObserver  {"pid": P, "milliseconds": M}      {"found": whether P has registered one}
//      status         -                                  what the service itself reports, and
//                                                        "published": bool, "callers": [pids]
//      heard          -                                  what it was told since the last question
//
// "sent" are the notices that left, in order, each with the number of observers that were reached:
// one, unless a fault drops, doubles or holds back notices. A fault of the descriptor is for a
// service that is not published yet. One-way calls have no pid: such callers are 0.
//
// A line that asks for something else is answered by {"error": text} and changes nothing.
#pragma once

#include <json/value.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "services/FaultSwitch.h"
#include "services/NoticeFaults.h"
#include "services/SimulatedService.h"
#include "services/WorldReplica.h"

namespace sim {

class ServiceControl {
public:
    using Time = std::chrono::steady_clock::time_point;

    /** All three outlive this object. name: as in methodsOf(). */
    ServiceControl(std::string name, SimulatedService& service, FaultSwitch& faults,
                   WorldReplica& world)
          : mName(std::move(name)), mService(service), mFaults(faults), mWorld(world) {}

    /** The answer to one line; the id is carried over. */
    [[nodiscard]] Json::Value answer(const Json::Value& request);

    /** When the service is to be published; absent before that was said, and once it is. */
    [[nodiscard]] std::optional<Time> publishTime() const { return mPublishTime; }
    void published() {
        mPublishTime.reset();
        mIsPublished = true;
    }

private:
    [[nodiscard]] Json::Value perform(const Json::Value& request);
    [[nodiscard]] Json::Value publish(const Json::Value& request);
    [[nodiscard]] Json::Value setFault(const Json::Value& request);
    [[nodiscard]] Json::Value send(const std::vector<Notice>& notices);
    [[nodiscard]] Json::Value status() const;

    const std::string mName;
    SimulatedService& mService;
    FaultSwitch& mFaults;
    WorldReplica& mWorld;
    NoticeFaults mNoticeFaults;
    std::optional<Time> mPublishTime;
    bool mIsPublished = false;
};

}  // namespace sim
