// SPDX-License-Identifier: Apache-2.0
//
// Where a player says what it does and what comes of it.
#pragma once

#include <json/value.h>

#include <string>

#include "scenario/Form.h"
#include "scenario/Script.h"

namespace sim::scenario {

class Reporter {
public:
    virtual ~Reporter() = default;

    /** A command is about to be done. */
    virtual void command(const Command& command) = 0;
    /** Something has happened on the headset. */
    virtual void event(const std::string& text) = 0;
    /** What somebody was asked for, as people and as programs read it. */
    virtual void answer(const std::string& text, const Json::Value& value) = 0;
    /** An expectation holds. */
    virtual void held(const Outcome& outcome) = 0;
    /** A headline. */
    virtual void title(const std::string& text) = 0;
};

}  // namespace sim::scenario
