// SPDX-License-Identifier: Apache-2.0
// Forms of commands.
#include "scenario/Form.h"

namespace sim::scenario {

Form action(const char* pattern, const char* help, const char* example,
            void (*play)(Player&, const Arguments&), Form::Names names) {
    return {Pattern(pattern), pattern, help, example, play, nullptr, names};
}

Form quietAction(const char* pattern, const char* help, const char* example,
                 void (*play)(Player&, const Arguments&), Form::Names names) {
    Form form = action(pattern, help, example, play, names);
    form.canBeQuiet = true;
    return form;
}

Form expectation(const char* pattern, const char* help, const char* example,
                 Outcome (*check)(Player&, const Arguments&)) {
    const std::string usage = std::string("expect ") + pattern;
    const bool isNegative = usage.starts_with("expect no ");
    const Pattern full(isNegative ? usage : usage + " [within=SECONDS]");
    return {full,    usage, help,      example, nullptr, check, Form::Names::Stay,
            nullptr, false, isNegative};
}

const std::vector<FormGroup>& formGroups() {
    static const std::vector<FormGroup> kGroups{
            {"Apps", appForms()},
            {"Calls", callForms()},
            {"The system", systemForms()},
            {"Faults", faultForms()},
            {"What is expected of the state", stateExpectations()},
            {"What is expected to have happened", eventExpectations()},
            {"Order and chance", orderForms()},
    };
    return kGroups;
}

}  // namespace sim::scenario
