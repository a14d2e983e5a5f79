// SPDX-License-Identifier: Apache-2.0
//
// A process that speaks bare commands to a driver, and means harm.
#pragma once

#include <string>

namespace peers {

/** The name of the process that is attacked, as it is published. */
inline constexpr const char* kVictim = "victim";

/** Attacks as often as it takes, and ends with status 0; with 1 when something went otherwise. */
[[noreturn]] void runHostile(const std::string& attack);

}  // namespace peers
