// SPDX-License-Identifier: Apache-2.0
//
// The control side of a simulated service process.
//
// Operations, each a line {"id": N, "op": ...} that is answered by a line with the same id:
//
//      world          {"world": {...}}                   replaces the service's copy of the world
//      tell           {"notice": {...}}                  {"told": observers reached}
//      awaitObserver  {"pid": P, "milliseconds": M}      {"found": whether P has registered one}
//      status         -                                  what the service itself reports
//      heard          -                                  what it was told since the last question
//
// A line that asks for something else is answered by {"error": text} and changes nothing.
#pragma once

#include <json/value.h>

#include "services/SimulatedService.h"
#include "services/WorldReplica.h"

namespace sim {

class ServiceControl {
public:
    /** Both outlive this object. */
    ServiceControl(SimulatedService& service, WorldReplica& world)
          : mService(service), mWorld(world) {}

    /** The answer to one line; the id is carried over. */
    [[nodiscard]] Json::Value answer(const Json::Value& request);

private:
    [[nodiscard]] Json::Value perform(const Json::Value& request);

    SimulatedService& mService;
    WorldReplica& mWorld;
};

}  // namespace sim
