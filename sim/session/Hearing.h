// SPDX-License-Identifier: Apache-2.0
//
// What one listener process, or the focus helper, has heard from the daemon.
//
// Fed with what the process logged ("heard": see AppListeners and FocusHelper); counts calls, knows
// the last one, and puts the new ones into a line for people:
//
//      head focus x2; input focus x2; top com.orbit.racer, immersive com.orbit.racer (pid 123) x2
//
// Order within a kind is the order of the calls; kinds are objects of their own, without an order
// among them.
#pragma once

#include <json/value.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/** The top activity and the immersive app, as told to listeners and reported as telemetry. */
struct Told {
    std::string top;
    std::string immersive;  // package; empty: no immersive app
    int pid = 0;            // 0 where only the package is told, as to the helper
    int uid = 0;
    bool isTop = false;

    bool operator==(const Told&) const = default;

    /** What the helper is told: packages only. */
    [[nodiscard]] Told packagesOnly() const { return {top, immersive, 0, 0, false}; }
    /** "top com.a, immersive com.a (pid 5)". */
    [[nodiscard]] std::string text() const;
};

class Hearing {
public:
    /** Takes over an answer to "heard". */
    void take(const Json::Value& answer);

    /** Calls ever heard. */
    [[nodiscard]] int focusCalls(int type) const;
    [[nodiscard]] int topCalls() const { return mTopCalls; }
    [[nodiscard]] const std::optional<Told>& last() const { return mLast; }
    /** What no daemon should have told, the first of it; else empty. */
    [[nodiscard]] const std::string& problem() const { return mProblem; }

    /** What was heard since the last call; empty when nothing was. */
    [[nodiscard]] std::string takeLine();

private:
    void takeEntry(const Json::Value& entry);
    void takeTold(Told told);
    void complain(const std::string& text);

    std::map<int, int> mFocusCalls;  // by type
    int mTopCalls = 0;
    std::optional<Told> mLast;
    std::optional<std::string> mHelperTop;  // told to the helper, its immersive app is to follow
    std::string mProblem;

    std::map<int, int> mNewFocusCalls;
    std::vector<std::pair<std::string, int>> mNewTold;  // text, repeats in a row
};

}  // namespace sim
