// SPDX-License-Identifier: Apache-2.0
//
// A notice of a platform service: what it tells its observers, one-way.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

namespace sim {

struct Notice {
    enum class Kind {
        ForegroundActivities,  // activity manager: pid, uid, value = whether it has any
        ForegroundServices,    // activity manager: pid, uid, value = service types
        ProcessDied,           // activity manager: pid, uid
        DisplayEvent,          // display manager: display, value = event
        FocusedWindow,         // window manager: uid, pid
    };
    static constexpr int kDisplayAdded = 1;
    static constexpr int kDisplayChanged = 2;
    static constexpr int kDisplayRemoved = 3;

    Kind kind = Kind::ForegroundActivities;
    int pid = 0;
    int uid = 0;
    int display = 0;
    int value = 0;

    bool operator==(const Notice&) const = default;

    /** Name of the service that sends it. */
    [[nodiscard]] std::string sender() const;
    /** Whether a service sends notices of any kind. */
    [[nodiscard]] static bool isSender(const std::string& service);

    [[nodiscard]] Json::Value toJson() const;
    /** Absent when it is not what toJson() makes. */
    [[nodiscard]] static std::optional<Notice> fromJson(const Json::Value& value);
};

/** An integer member of an object; absent when it is missing or not an int. */
[[nodiscard]] std::optional<int> intMember(const Json::Value& object, const char* key);

/** A string member of an object; absent when it is missing or not a string. */
[[nodiscard]] std::optional<std::string> stringMember(const Json::Value& object, const char* key);

}  // namespace sim
