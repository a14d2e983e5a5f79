// SPDX-License-Identifier: Apache-2.0
//
// A dialogue as programs read it: one JSON object per line, of which exactly one of these members
// says what it is.
//
//      {"event":"game starts (pid 4102, uid 10061)"}
//      {"title":"The shell returns"}
//      {"playing":"front game"}                           a command within a block
//      {"answer":3,"command":"ask game top","ok":true,"result":{...}}
//      {"answer":4,"command":"...","ok":false,"error":{"kind":"expectation","message":"...",...}}
#pragma once

#include <string>

#include "scenario/Dialogue.h"
#include "scenario/OutputLines.h"
#include "scenario/Reporter.h"

namespace sim::scenario {

class JsonReporter : public Reporter {
public:
    /** Writes to an output that outlives it. */
    explicit JsonReporter(OutputLines& out) : mOut(out) {}

    /** Answers a line; nothing for one that asks for no answer. */
    void reply(const Reply& reply);

    void command(const Command& command) override;
    void event(const std::string& text) override;
    void answer(const std::string& text, const Json::Value& value) override;
    void held(const Outcome& outcome) override;
    void title(const std::string& text) override;

    /** A command of the dialogue itself is about to be taken: its own text is not repeated. */
    void begin(const std::string& text) { mTaken = text; }

private:
    void say(const char* member, const std::string& text);

    OutputLines& mOut;
    std::string mTaken;
    Json::Value mResults{Json::arrayValue};  // of the line that is being done
};

}  // namespace sim::scenario
