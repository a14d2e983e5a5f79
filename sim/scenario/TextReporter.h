// SPDX-License-Identifier: Apache-2.0
//
// A run as people read it, which is a scenario again: commands, and as comments what came of them.
//
//      start game uid=10061
//          # game starts (pid 4102, uid 10061)
//      expect focus game both
#pragma once

#include "scenario/Reporter.h"
#include "session/Timeline.h"

namespace sim::scenario {

class TextReporter : public Reporter {
public:
    /** The timeline outlives this object. echo: commands are shown, as they are not typed. */
    TextReporter(Timeline& timeline, bool echo) : mTimeline(timeline), mEcho(echo) {}

    void command(const Command& command) override;
    void event(const std::string& text) override;
    void answer(const std::string& text, const Json::Value& value) override;
    void held(const Outcome& outcome) override;
    void title(const std::string& text) override;

private:
    Timeline& mTimeline;
    const bool mEcho;
};

}  // namespace sim::scenario
