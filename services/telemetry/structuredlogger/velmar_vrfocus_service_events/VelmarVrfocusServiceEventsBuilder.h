// SPDX-License-Identifier: Apache-2.0
//
// Focus event builder: one event message in the making.
//
// Setters work on an rvalue only, so that a chain starts at a new builder, or at one that the
// caller visibly gives up:
//
//      auto builder = VelmarVrfocusServiceEventsBuilder().setFocusEvent("immersive_app_update");
//      builder.message().set_pid(pid);
//      return std::move(builder).setPackageName("com.velmar.game");
//
// Threads: one at a time.
#pragma once

#include <velmar_vrfocus_service_events/velmar_vrfocus_service_events.pb.h>

#include <memory>
#include <string>

namespace com::velmar::os::statsdstructuredlogger {

class VelmarVrfocusServiceEventsBuilder {
public:
    /** Starts with a new message in which no field is present. */
    VelmarVrfocusServiceEventsBuilder();

    VelmarVrfocusServiceEventsBuilder(VelmarVrfocusServiceEventsBuilder&&) noexcept = default;
    VelmarVrfocusServiceEventsBuilder& operator=(VelmarVrfocusServiceEventsBuilder&&) noexcept =
            default;

    /** Each marks its field present, also with an empty value, and returns this builder. */
    VelmarVrfocusServiceEventsBuilder&& setFocusEvent(std::string value) &&;
    VelmarVrfocusServiceEventsBuilder&& setCurrentTopActivity(std::string value) &&;
    VelmarVrfocusServiceEventsBuilder&& setPackageName(std::string value) &&;
    VelmarVrfocusServiceEventsBuilder&& setIsTopActivity(bool value) &&;

    /** The owned message, for the fields that have no setter: pid and uid. */
    [[nodiscard]] events::VelmarVrfocusServiceEvents& message() { return *mMessage; }

    /** Hands the message over; the builder is of no use afterwards. */
    [[nodiscard]] std::unique_ptr<events::VelmarVrfocusServiceEvents> release() &&;

private:
    std::unique_ptr<events::VelmarVrfocusServiceEvents> mMessage;
};

}  // namespace com::velmar::os::statsdstructuredlogger
