// SPDX-License-Identifier: Apache-2.0
//
// Event text: one event as one line for people or for programs.
//
//      2023-11-14 22:13:20.042 120828 VelmarVrfocusServiceEvents focus_event="..." pid=4321
//      2023-11-14 22:13:20.042 42 bytes=0a0b
//
//      {"time_us":1700000000042000,"id":120828,"event":"VelmarVrfocusServiceEvents",
//       "fields":{"focus_event":"...","pid":4321}}                            (on one line)
//      {"time_us":1700000000042000,"id":42,"bytes":"0a0b"}
//
// Times for people are local ones. Lines are ASCII: what else strings hold is escaped as in JSON,
// so that no event can steer a terminal.
#pragma once

#include <optional>
#include <string>

#include "../EventLine.h"
#include "EventSchemas.h"

namespace hosttelemetry {

/** Without `decoded` the event's bytes are shown. No line end. */
[[nodiscard]] std::string toText(const Event& event, const std::optional<DecodedEvent>& decoded);
[[nodiscard]] std::string toJson(const Event& event, const std::optional<DecodedEvent>& decoded);

}  // namespace hosttelemetry
