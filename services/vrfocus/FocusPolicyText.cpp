// SPDX-License-Identifier: Apache-2.0
//
// Text of the policy's dump that needs more than a format string.
#include "FocusPolicyText.h"

#include <cstdio>
#include <ctime>

namespace NQS::OS {

std::string localTimeText(std::chrono::system_clock::time_point time) {
    // The tick differs between standard libraries: name the unit, never count ticks.
    const auto millis =
            std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm local{};
    localtime_r(&seconds, &local);
    char date[32] = "";
    std::strftime(date, sizeof(date), "%Y-%m-%d %H:%M:%S", &local);
    char fraction[8] = "";
    std::snprintf(fraction, sizeof(fraction), ".%03d", static_cast<int>(millis % 1000));
    return std::string(date) + fraction;
}

}  // namespace NQS::OS
