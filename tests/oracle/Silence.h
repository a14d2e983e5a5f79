// SPDX-License-Identifier: Apache-2.0
// A reporter that says nothing: what is played is judged by its end.
#pragma once

#include "scenario/Reporter.h"

namespace oracle {

class Silence : public sim::scenario::Reporter {
public:
    void command(const sim::scenario::Command&) override {}
    void event(const std::string&) override {}
    void answer(const std::string&, const Json::Value&) override {}
    void held(const sim::scenario::Outcome&) override {}
    void title(const std::string&) override {}
};

}  // namespace oracle
