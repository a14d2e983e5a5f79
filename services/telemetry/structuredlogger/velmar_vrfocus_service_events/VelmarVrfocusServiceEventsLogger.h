// SPDX-License-Identifier: Apache-2.0
//
// Focus event logger: hands one event at a time to the platform's telemetry.
//
// Threads: any number at once. A logger keeps nothing between calls and takes no lock; the
// platform's entry point accepts concurrent calls.
#pragma once

#include <velmar_vrfocus_service_events/VelmarVrfocusServiceEventsBuilder.h>

#include <functional>

namespace com::velmar::os::statsdstructuredlogger {

class VelmarVrfocusServiceEventsLogger {
public:
    virtual ~VelmarVrfocusServiceEventsLogger() = default;

    /**
     * Runs `makeEvent` once, on this thread and before it returns, and submits the event. True when
     * the platform accepted it; nothing is retried or logged when it did not.
     *
     * An empty function is the caller's bug: std::bad_function_call.
     */
    virtual bool log(std::function<VelmarVrfocusServiceEventsBuilder()> makeEvent);
};

}  // namespace com::velmar::os::statsdstructuredlogger
