// SPDX-License-Identifier: Apache-2.0
//
// Focus event reporter: turns the policy's answers into telemetry.
//
// Telemetry never affects a focus decision: whether an event was accepted is nobody's business
// here.
//
// Threads: any number at once; the reporter has nothing that changes.
#pragma once

#include <utils/String16.h>
#include <velmar/internal/ImmersiveApp.h>
#include <velmar_vrfocus_service_events/VelmarVrfocusServiceEventsLogger.h>

#include <memory>
#include <optional>

namespace NQS::OS {

using velmar::internal::ImmersiveApp;

class VrFocusEventReporter {
public:
    using Logger = com::velmar::os::statsdstructuredlogger::VelmarVrfocusServiceEventsLogger;

    /** Shares the logger, which must not be null. */
    explicit VrFocusEventReporter(std::shared_ptr<Logger> logger);

    /**
     * Reports that `topActivity` (empty when there is none) is on top and `app` is immersive. The
     * event is submitted when this returns, or dropped.
     */
    void reportImmersiveAppUpdate(std::optional<ImmersiveApp> app,
                                  const android::String16& topActivity);

private:
    const std::shared_ptr<Logger> mLogger;
};

}  // namespace NQS::OS
