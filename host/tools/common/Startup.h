// SPDX-License-Identifier: Apache-2.0
//
// Startup: what a tool does before it can speak to services.
#pragma once

#include <binder/IServiceManager.h>

#include <functional>
#include <ostream>
#include <string>

namespace tools {

/** Null when there is none; why, and what to start, is then said on `err`. */
using Connect = std::function<android::sp<android::IServiceManager>(std::ostream& err)>;

/**
 * Asks for the process's service manager without waiting for one to be started. A service manager
 * that does not answer within seconds counts as none. The process ends with status 1, with a
 * message, when the driver cannot be opened. `tool` begins the messages.
 */
[[nodiscard]] android::sp<android::IServiceManager> connectToServiceManager(const std::string& tool,
                                                                            std::ostream& err);

/**
 * Puts something that cannot be written to or read from in the place of standard descriptors that
 * are closed: else the driver's would get such a number, and output would be sent to the driver.
 * Call it first. False when that fails.
 */
[[nodiscard]] bool fillStandardDescriptors();

}  // namespace tools
