// SPDX-License-Identifier: Apache-2.0
//
// What the daemon answers at one moment, and what it should.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace sim {

/** Focus of one app, per type. */
struct Verdict {
    bool head = false;
    bool input = false;
    bool operator==(const Verdict&) const = default;
};

constexpr Verdict kNoFocus{false, false};
constexpr Verdict kHeadOnly{true, false};
constexpr Verdict kBoth{true, true};

struct Answers {
    std::map<std::string, Verdict> focus;  // by process name; only processes the daemon knows
    std::string immersive;                 // process name; empty: there is none
    std::string top;                       // package of the top activity; empty: none
    std::string problem;                   // an answer that no expectation allows; else empty

    bool operator==(const Answers&) const = default;
};

/** One line per difference: "head of com.a: expected yes, got no". */
[[nodiscard]] std::vector<std::string> differences(const Answers& expected, const Answers& got);

}  // namespace sim
