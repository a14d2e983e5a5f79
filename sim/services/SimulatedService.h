// SPDX-License-Identifier: Apache-2.0
//
// What the control thread asks of every simulated service, whatever its binder interface.
#pragma once

#include <json/value.h>

#include <chrono>
#include <cstddef>

#include "process/HeardLog.h"
#include "world/Notice.h"

namespace sim {

class SimulatedService {
public:
    virtual ~SimulatedService() = default;

    /** Sends a notice to every observer, one-way, in the order of calls. How many took it. */
    [[nodiscard]] virtual size_t tell(const Notice& notice) {
        static_cast<void>(notice);
        return 0;
    }

    /** Waits until the process has an observer registered here. False when it has none by then. */
    [[nodiscard]] virtual bool awaitObserver(int pid, std::chrono::milliseconds timeout) {
        static_cast<void>(pid);
        static_cast<void>(timeout);
        return false;
    }

    /** What callers have brought about here, for the controller to look at. */
    [[nodiscard]] virtual Json::Value status() const { return Json::objectValue; }

    /** What callers have told it since the last question, as HeardLog::take() gives it. */
    [[nodiscard]] virtual Json::Value takeHeard() { return HeardLog().take(); }
};

}  // namespace sim
