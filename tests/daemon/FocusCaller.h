// SPDX-License-Identifier: Apache-2.0
//
// Focus caller: a process of the driver that calls "vrfocus" with any bytes.
//
// Problem: the runtime refuses to send what is wrong. This one does not, and learns all that came
// back. It has a driver of its own, so a test process may be several callers, all under its pid;
// in a forked child it is a process of its own. Destroyed, it is dead to the hub.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "FocusRequest.h"
#include "RawClient.h"

namespace daemontest {

/** Codes of the interface. */
enum Code : uint32_t {
    kGetClientFocusStatus = 1,
    kRegisterVrFocusListener,
    kUnregisterVrFocusListener,
    kRegisterVrTopActivityListener,
    kUnregisterVrTopActivityListener,
    kSetAppState,
    kGetImmersiveApp,
    kGetTopActivity,
    kGetForegroundApps,
    kGrantTrackingServiceAccess,
    kRevokeTrackingServiceAccess,
};

struct Answer {
    /** What the runtime would say: OK, the callee's status, DEAD_OBJECT, FAILED_TRANSACTION. */
    int32_t status = 0;
    /** With status OK: the exception, and the bytes behind it. */
    int32_t exception = 0;
    std::string result;

    bool operator==(const Answer&) const = default;
};
/** A call that did not come through, and one that was refused. */
[[nodiscard]] Answer failed(int32_t status);
[[nodiscard]] bool isRefused(const Answer& answer, int32_t exception);
std::ostream& operator<<(std::ostream& out, const Answer& answer);

class FocusCaller {
public:
    /** Looks the service up; throws std::runtime_error when there is none. */
    explicit FocusCaller(const std::string& hubPath);

    /** A two-way call to the service; waits for what comes back. */
    [[nodiscard]] Answer call(uint32_t code, const Payload& request);
    [[nodiscard]] Answer call(uint32_t code, const FocusRequest& request = FocusRequest()) {
        return call(code, request.payload());
    }
    /** One-way; returns when the driver has taken it. */
    void post(uint32_t code, const FocusRequest& request);
    /** Begins a two-way call; finish() waits for what comes back. */
    void begin(uint32_t code, const Payload& request);
    [[nodiscard]] Answer finish();

    /** The dump that these arguments ask for, read to its end. */
    [[nodiscard]] std::string dump(const std::vector<std::u16string>& arguments);
    /** The pid that the service itself names. */
    [[nodiscard]] int32_t servicePid();
    /** Whether the service gives a right answer to a right question. */
    [[nodiscard]] bool isAnswered();

    [[nodiscard]] uint32_t handle() const { return mHandle; }
    [[nodiscard]] binderhost::tests::RawClient& raw() { return mClient; }

    /** A dump request; the descriptor remains the caller's. */
    [[nodiscard]] static FocusRequest dumpRequest(int fd,
                                                  const std::vector<std::u16string>& arguments);

private:
    binderhost::tests::RawClient mClient;
    uint32_t mHandle = 0;
};

}  // namespace daemontest
