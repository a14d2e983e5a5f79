// SPDX-License-Identifier: Apache-2.0
//
// Text of the policy's dump that needs more than a format string.
#pragma once

#include <chrono>
#include <string>

namespace NQS::OS {

/**
 * The moment in local time, to the millisecond: "2024-03-05 14:07:09.042". The time zone is that
 * of the call, not of the program's start. Any thread.
 */
std::string localTimeText(std::chrono::system_clock::time_point time);

}  // namespace NQS::OS
