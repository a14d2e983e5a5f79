// SPDX-License-Identifier: Apache-2.0
//
// What listeners and the focus helper have heard, in order, and how far expectations have passed.
//
// Each thing heard is a word: "head", "input", "top:PACKAGE:IMMERSIVE" (a package, or nothing when
// there is no immersive app), of the helper "top:PACKAGE" and "immersive:PACKAGE". Telemetry events
// are kept as if somebody of this name had heard them. An expected word fits when it is the same or
// a beginning of it up to a colon.
//
// Each kind of listener is an object of its own, and between objects the driver keeps no order: so
// an app's words are in order within their kind, "head", "input" or "top". The helper and the
// telemetry have one order for all.
//
// One thread.
#pragma once

#include <json/value.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim::scenario {

class Ears {
public:
    static constexpr const char* kHelper = "vrfocushelper";
    static constexpr const char* kTelemetry = "telemetry";

    /** Takes over {"heard": entries, "dropped": count}; the new words. A log that overflowed gives
     * "(N lost)". */
    std::vector<std::string> take(const std::string& who, const Json::Value& answer);

    /** What was heard and not passed. */
    [[nodiscard]] std::vector<std::string> fresh(const std::string& who) const;

    /**
     * Whether these were heard, in this order within each kind, others between them allowed unless
     * exactly. When so, passes what was heard of these kinds up to the last of them.
     */
    [[nodiscard]] bool passIfHeard(const std::string& who, const std::vector<std::string>& due,
                                   bool exactly);

    /** Whether a word that was heard is the expected one. */
    [[nodiscard]] static bool fits(const std::string& heard, const std::string& expected);

private:
    struct Queue {
        std::vector<std::string> heard;
        size_t passed = 0;
    };
    [[nodiscard]] static std::string queueOf(const std::string& who, const std::string& word);
    [[nodiscard]] static std::optional<size_t> endOf(const Queue& queue,
                                                     const std::vector<std::string>& due,
                                                     bool exactly);

    std::map<std::string, std::map<std::string, Queue>> mEars;  // by who, and kind
};

}  // namespace sim::scenario
