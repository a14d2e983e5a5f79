// SPDX-License-Identifier: Apache-2.0
//
// Text of the policy's dump that needs more than a format string.
#include "FocusPolicyText.h"

#include <cstdio>
#include <ctime>

namespace NQS::OS {

std::string localTimeText(std::chrono::system_clock::time_point time) {
    // Whole seconds downwards, so that what is left is never negative. The clock's tick differs
    // between standard libraries: the rest is in microseconds by name.
    const auto second = std::chrono::floor<std::chrono::seconds>(time);
    const auto rest = std::chrono::duration_cast<std::chrono::microseconds>(time - second);
    const std::time_t seconds = std::chrono::system_clock::to_time_t(second);
    // localtime() would look whether the zone has changed, but it shares its result.
    tzset();
    std::tm local{};
    localtime_r(&seconds, &local);
    char date[32] = "";
    std::strftime(date, sizeof(date), "%Y-%m-%d %H:%M:%S", &local);
    char fraction[8] = "";
    std::snprintf(fraction, sizeof(fraction), ".%03d", static_cast<int>(rest.count() / 1000));
    return std::string(date) + fraction;
}

}  // namespace NQS::OS
