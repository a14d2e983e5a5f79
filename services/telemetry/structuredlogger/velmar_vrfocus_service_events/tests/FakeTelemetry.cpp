// SPDX-License-Identifier: Apache-2.0
#include "FakeTelemetry.h"

#include <dorn/TelemetryManager.h>

#include <utility>

namespace com::velmar::os::statsdstructuredlogger {

FakeTelemetry& FakeTelemetry::instance() {
    // Never destroyed: threads of the runtime may report until the very end.
    static FakeTelemetry* const telemetry = new FakeTelemetry;
    return *telemetry;
}

void FakeTelemetry::setStatus(int32_t status) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mStatus = status;
}

std::vector<ReportedEvent> FakeTelemetry::take() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mEvents, {});
}

int32_t FakeTelemetry::report(int32_t id, const uint8_t* data, size_t size) {
    const std::lock_guard<std::mutex> lock(mMutex);
    std::string bytes;
    if (size > 0) bytes.assign(reinterpret_cast<const char*>(data), size);
    mEvents.push_back({.id = id, .bytes = std::move(bytes), .hadBuffer = data != nullptr});
    return mStatus;
}

}  // namespace com::velmar::os::statsdstructuredlogger

int32_t TelemetryManager_reportPlatformEvent(int32_t eventId, const uint8_t* data, size_t size) {
    using com::velmar::os::statsdstructuredlogger::FakeTelemetry;
    return FakeTelemetry::instance().report(eventId, data, size);
}
