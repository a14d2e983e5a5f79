// SPDX-License-Identifier: Apache-2.0
//
// Telemetry manager: the platform's entry point for structured events (libkvos.dorn).
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Submits one event: `size` bytes at `data`, borrowed for the call alone; `data` may be null when
 * `size` is 0. Returns 0 when the event was accepted. Any number of threads may call at once.
 *
 * On the host the event is appended to the file that the environment variable HOST_TELEMETRY
 * names, and any other result is the errno value that says why it was not.
 */
int32_t TelemetryManager_reportPlatformEvent(int32_t eventId, const uint8_t* data, size_t size);

#ifdef __cplusplus
}
#endif
