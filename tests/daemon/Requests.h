// SPDX-License-Identifier: Apache-2.0
//
// Requests: one right request of every method.
#pragma once

#include <cstdint>
#include <vector>

#include "FocusCaller.h"
#include "FocusRequest.h"

namespace daemontest {

struct Request {
    const char* name;
    uint32_t code;
    FocusRequest bytes;
};

/** As many pids as fit into the buffer of a process, beside the rest of the request. */
constexpr size_t kMostPids = (1024 * 1024 - 2 * 4096 - 1024) / sizeof(int32_t);

/** They name no process, and displays and nodes of nobody. */
inline std::vector<Request> everyRequest() {
    constexpr uint64_t kNode = 0x1000;
    constexpr int32_t kDisplay = 77;
    return {
            {"getClientFocusStatus", kGetClientFocusStatus,
             FocusRequest().int32(0).int32Vector({-1, -2, -3, -4})},
            {"registerVrFocusListener", kRegisterVrFocusListener,
             FocusRequest().node(kNode).int32(0)},
            {"unregisterVrFocusListener", kUnregisterVrFocusListener, FocusRequest().int32(0)},
            {"registerVrTopActivityListener", kRegisterVrTopActivityListener,
             FocusRequest().node(kNode)},
            {"unregisterVrTopActivityListener", kUnregisterVrTopActivityListener, FocusRequest()},
            {"setAppState", kSetAppState, FocusRequest().int32(-1).int32(0)},
            {"getImmersiveApp", kGetImmersiveApp, FocusRequest()},
            {"getTopActivity", kGetTopActivity, FocusRequest()},
            {"getForegroundApps", kGetForegroundApps, FocusRequest()},
            {"grantTrackingServiceAccess", kGrantTrackingServiceAccess,
             FocusRequest().int32(kDisplay)},
            {"revokeTrackingServiceAccess", kRevokeTrackingServiceAccess,
             FocusRequest().int32(kDisplay)},
    };
}

}  // namespace daemontest
