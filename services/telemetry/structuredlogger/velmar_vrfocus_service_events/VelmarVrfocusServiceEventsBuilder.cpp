// SPDX-License-Identifier: Apache-2.0
//
// Focus event builder.
#include "VelmarVrfocusServiceEventsBuilder.h"

#include <utility>

namespace com::velmar::os::statsdstructuredlogger {

using events::VelmarVrfocusServiceEvents;
using Builder = VelmarVrfocusServiceEventsBuilder;

Builder::VelmarVrfocusServiceEventsBuilder()
      : mMessage(std::make_unique<VelmarVrfocusServiceEvents>()) {}

Builder&& Builder::setFocusEvent(std::string value) && {
    mMessage->set_focus_event(std::move(value));
    return std::move(*this);
}

Builder&& Builder::setCurrentTopActivity(std::string value) && {
    mMessage->set_current_top_activity(std::move(value));
    return std::move(*this);
}

Builder&& Builder::setPackageName(std::string value) && {
    mMessage->set_package_name(std::move(value));
    return std::move(*this);
}

Builder&& Builder::setIsTopActivity(bool value) && {
    mMessage->set_is_top_activity(value);
    return std::move(*this);
}

std::unique_ptr<VelmarVrfocusServiceEvents> Builder::release() && {
    return std::move(mMessage);
}

}  // namespace com::velmar::os::statsdstructuredlogger
