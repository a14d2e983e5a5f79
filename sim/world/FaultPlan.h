// SPDX-License-Identifier: Apache-2.0
//
// A fault of a simulated service: what goes wrong, in which calls or notices, how often.
//
//      kind            goes wrong                                        uses
//      None            nothing any more: all faults are cleared          -
//      Error           calls are not performed, but answered so          method exception|transport
//      times Truncated       calls are performed, half of the reply is sent    method times Random
//      calls are answered with random bytes              method seed times Dies            the
//      process ends in the next such call            method Descriptor      the service is
//      published as another interface     descriptor DropNotices     notices are not sent times
//      DoubleNotices   notices are sent twice                            times
//      ReorderNotices  the next are held back, then sent in reverse      times
//
// One fault per method (or for all) and one of the notices hold at a time; a later one replaces an
// earlier one, and a method's own goes before that for all.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

namespace sim {

struct FaultPlan {
    enum class Kind {
        None,
        Error,
        Truncated,
        Random,
        Dies,
        Descriptor,
        DropNotices,
        DoubleNotices,
        ReorderNotices,
    };
    static constexpr const char* kAllMethods = "all";
    /** Whichever methods of the service keep an observer of the caller. */
    static constexpr const char* kRegistration = "registration";

    /** Of the exceptions: what lies below stands for something else on the wire. */
    static constexpr int kLowestException = -9;

    Kind kind = Kind::None;
    std::string method = kAllMethods;
    int exception = 0;  // of the binder status, -1 to -9
    int transport = 0;  // or the error of the transport, negative
    int times = 0;      // calls or notices; 0: until it is cleared
    uint32_t seed = 0;
    std::string descriptor{};

    bool operator==(const FaultPlan&) const = default;

    /** Why the service cannot have this fault; empty when it can. */
    [[nodiscard]] std::string problemWith(const std::string& service) const;

    /** Whether it is about notices that the service sends, and not calls that it answers. */
    [[nodiscard]] bool isOfNotices() const;

    [[nodiscard]] Json::Value toJson() const;
    /** Absent when it is not what toJson() makes. */
    [[nodiscard]] static std::optional<FaultPlan> fromJson(const Json::Value& value);
};

}  // namespace sim
