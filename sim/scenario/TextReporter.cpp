// SPDX-License-Identifier: Apache-2.0
// A run as people read it.
#include "scenario/TextReporter.h"

#include <sstream>

namespace sim::scenario {

void TextReporter::command(const Command& command) {
    if (!mEcho) return;
    const std::string verb = command.form->pattern.verb();
    // What it stands for follows.
    mTimeline.line(verb == "random" ? "# " + command.text : command.text);
}

void TextReporter::event(const std::string& text) {
    mTimeline.remark(text);
}

void TextReporter::answer(const std::string& text, const Json::Value& value) {
    static_cast<void>(value);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        mTimeline.remark("| " + line);
}

void TextReporter::held(const Outcome& outcome) {
    if (!mEcho) mTimeline.remark(outcome.expected);
}

void TextReporter::title(const std::string& text) {
    if (!mEcho) mTimeline.title(text);
}

}  // namespace sim::scenario
