// SPDX-License-Identifier: Apache-2.0
//
// Event schemas: turns an event's bytes into named fields, for event types known at run time only.
//
//      telemetry-events/120828.desc    the description of event 120828's message, as protoc's
//                                      --descriptor_set_out writes it
//
// The file's last .proto file describes the event: its first message. Whoever defines an event puts
// the description there; nothing here knows any event. An event without one has no fields.
//
// Threads: one at a time.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "../EventLine.h"

namespace hosttelemetry {

struct DecodedEvent {
    /** The message's name without its package. */
    std::string type;
    /**
     * Present fields in order of their numbers, then those that the description does not know,
     * under their number and, where these are bytes, in hexadecimal.
     */
    std::vector<std::pair<std::string, Json::Value>> fields;
};

class EventSchemas {
public:
    /** A folder that does not exist is an empty one. */
    explicit EventSchemas(std::string folder);
    ~EventSchemas();

    EventSchemas(const EventSchemas&) = delete;
    EventSchemas& operator=(const EventSchemas&) = delete;

    /** Empty when there is no description, or the bytes are no such message. */
    [[nodiscard]] std::optional<DecodedEvent> decode(const Event& event);

    /** Descriptions that could not be used, each said once: what is new since the last call. */
    [[nodiscard]] std::vector<std::string> takeProblems();

private:
    class Schema;

    /** Null when there is none; the file is looked at once. */
    [[nodiscard]] const Schema* find(int32_t id);

    const std::string mFolder;
    std::map<int32_t, std::unique_ptr<Schema>> mSchemas;
    std::vector<std::string> mProblems;
};

}  // namespace hosttelemetry
