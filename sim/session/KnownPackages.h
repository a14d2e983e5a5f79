// SPDX-License-Identifier: Apache-2.0
// Names that sessions share: packages, processes, permissions.
#pragma once

namespace sim {

constexpr const char* kShell = "com.velmar.shellenv";
constexpr const char* kGame = "com.orbit.racer";
constexpr const char* kCoachPackage = "com.pulse.coach";
constexpr const char* kCoach = "com.pulse.coach:tracking";
/** The package of the person at the command line, and of the tools. */
constexpr const char* kTerminal = "com.android.shell";

constexpr const char* kReadFocus = "com.velmar.permission.READ_FOCUS_STATE";
constexpr const char* kGrantTracking =
        "com.velmar.permission.GRANT_TRACKING_SERVICE_ACCESS_TO_DISPLAY";
constexpr const char* kBackgroundHead = "com.velmar.permission.ACCESS_BACKGROUND_HEAD_TRACKING";
constexpr const char* kDump = "android.permission.DUMP";

}  // namespace sim
