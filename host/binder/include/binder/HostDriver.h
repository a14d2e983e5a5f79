// SPDX-License-Identifier: Apache-2.0
//
// The one place where a host program chooses the driver itself. Not on the device.
#pragma once

#include <driver/Driver.h>

#include <memory>

namespace android {

/**
 * Makes the process use this driver instead of opening one. To be called before anything else of
 * the runtime is used; aborts when the driver has been opened already.
 */
void setProcessDriver(std::unique_ptr<binderhost::Driver> driver);

}  // namespace android
