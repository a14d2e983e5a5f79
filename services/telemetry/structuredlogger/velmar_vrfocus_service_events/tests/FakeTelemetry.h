// SPDX-License-Identifier: Apache-2.0
//
// Fake telemetry: the events that the code under test handed to the platform.
//
// Linked in place of the platform's entry point. One per program; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace com::velmar::os::statsdstructuredlogger {

struct ReportedEvent {
    int32_t id;
    /** The submitted bytes, copied during the call. */
    std::string bytes;
    /** Whether the caller lent a buffer at all. */
    bool hadBuffer;
};

class FakeTelemetry {
public:
    static FakeTelemetry& instance();

    /** What the entry point answers from now on; 0 accepts. */
    void setStatus(int32_t status);
    /** The events since the last take, in order. */
    [[nodiscard]] std::vector<ReportedEvent> take();

    int32_t report(int32_t id, const uint8_t* data, size_t size);

private:
    // Guards the two below.
    std::mutex mMutex;
    std::vector<ReportedEvent> mEvents;
    int32_t mStatus = 0;
};

}  // namespace com::velmar::os::statsdstructuredlogger
