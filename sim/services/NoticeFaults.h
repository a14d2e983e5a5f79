// SPDX-License-Identifier: Apache-2.0
//
// What becomes of the notices that a service is to send while it has a fault of that kind.
//
// One thread, no calls: notices go in, those to be sent now come out, in order.
#pragma once

#include <vector>

#include "world/FaultPlan.h"
#include "world/Notice.h"

namespace sim {

class NoticeFaults {
public:
    /**
     * Replaces what was planned; a plan of kind None ends it. The notices that were held back for
     * an order that is given up now come out, in the order in which they went in.
     */
    [[nodiscard]] std::vector<Notice> set(const FaultPlan& plan);

    [[nodiscard]] std::vector<Notice> pass(const Notice& notice);

private:
    FaultPlan mPlan;
    std::vector<Notice> mHeld;
};

}  // namespace sim
