// SPDX-License-Identifier: Apache-2.0
//
// Focus event reporter.
#define LOG_TAG "VrFocus"

#include "VrFocusEventReporter.h"

#include <log/log.h>

#include <utility>

#include "Utf8.h"

namespace NQS::OS {

namespace {

using EventBuilder = com::velmar::os::statsdstructuredlogger::VelmarVrfocusServiceEventsBuilder;

EventBuilder makeEvent(const std::optional<ImmersiveApp>& app,
                       const android::String16& topActivity) {
    auto builder = EventBuilder()
                           .setFocusEvent("immersive_app_update")
                           .setCurrentTopActivity(toUtf8(topActivity));
    if (!app) return builder;
    builder.message().set_uid(app->uid);
    builder.message().set_pid(app->pid);
    return std::move(builder)
            .setPackageName(toUtf8(app->packageName))
            .setIsTopActivity(app->isTopActivity);
}

}  // namespace

VrFocusEventReporter::VrFocusEventReporter(std::shared_ptr<Logger> logger)
      : mLogger(std::move(logger)) {}

void VrFocusEventReporter::reportImmersiveAppUpdate(std::optional<ImmersiveApp> app,
                                                    const android::String16& topActivity) {
    ALOGD("VrFocusEventReporter: reportImmersiveAppUpdate");
    mLogger->log([&] { return makeEvent(app, topActivity); });
}

}  // namespace NQS::OS
