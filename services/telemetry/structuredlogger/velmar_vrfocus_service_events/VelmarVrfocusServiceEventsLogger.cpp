// SPDX-License-Identifier: Apache-2.0
//
// Focus event logger.
#include "VelmarVrfocusServiceEventsLogger.h"

#include <dorn/TelemetryManager.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace com::velmar::os::statsdstructuredlogger {

namespace {

/** By this number the receiving side knows the message type. */
constexpr int32_t kEventId = 120828;

}  // namespace

// The producer comes by value, as the pipeline's loggers take it.
// NOLINTBEGIN(performance-unnecessary-value-param)
bool VelmarVrfocusServiceEventsLogger::log(
        std::function<VelmarVrfocusServiceEventsBuilder()> makeEvent) {
    // NOLINTEND(performance-unnecessary-value-param)
    const auto event = makeEvent().release();
    const size_t size = event->ByteSizeLong();
    std::unique_ptr<uint8_t[]> buffer;
    if (size > 0) buffer = std::make_unique<uint8_t[]>(size);
    // Fails for more than 2 GiB only, which no event of strings from a binder call can reach.
    if (!event->SerializeToArray(buffer.get(), static_cast<int>(size))) return false;
    return TelemetryManager_reportPlatformEvent(kEventId, buffer.get(), size) == 0;
}

}  // namespace com::velmar::os::statsdstructuredlogger
