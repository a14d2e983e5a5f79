// SPDX-License-Identifier: Apache-2.0
//
// Sink limits: how much telemetry the host keeps.
#pragma once

#include <sys/types.h>

namespace hosttelemetry {

/**
 * Apps decide how many events there are, so the file is bounded: some 250,000 events, more than a
 * day of an app change every second. Writers that look at the same time may exceed it by a line
 * each.
 */
inline constexpr off_t kMaxSinkBytes = off_t{64} * 1024 * 1024;

}  // namespace hosttelemetry
