// SPDX-License-Identifier: Apache-2.0
//
// What the control thread asks of whatever stands between a service and its callers.
#pragma once

#include <json/value.h>

#include <string>

#include "world/FaultPlan.h"

namespace sim {

class FaultSwitch {
public:
    virtual ~FaultSwitch() = default;

    /** A fault of the calls, or their end (None). From the next call that arrives. */
    virtual void set(const FaultPlan& plan) = 0;

    /** The processes that have called since the start, in ascending order of their pids. */
    [[nodiscard]] virtual Json::Value callers() const = 0;
};

}  // namespace sim
