// SPDX-License-Identifier: Apache-2.0
//
// A form of a command: its pattern, its help, and what it does. The tables of all forms are the
// language; the parser, `help`, the prompt's completion and the page of documentation follow them.
#pragma once

#include <string>
#include <vector>

#include "scenario/Pattern.h"

namespace sim::scenario {

class Player;

/** Whether something that was expected is the case. */
struct Outcome {
    bool holds = false;
    std::string expected;
    std::string got;
    std::string status{};  // of a call that was made and ended with another one than was due
};

struct Form {
    enum class Names { Stay, Start, End, Replace };  // what becomes of NAME, APP or TARGET

    Pattern pattern;
    std::string usage;    // the pattern as it was written
    std::string help;     // one line
    std::string example;  // a command, which parses where the names in it run
    /** Does it; null for an expectation. */
    void (*play)(Player& player, const Arguments& arguments) = nullptr;
    /** Looks whether it holds now; null for a command. */
    Outcome (*check)(Player& player, const Arguments& arguments) = nullptr;
    Names names = Names::Stay;
    struct Problem {
        std::string message;  // empty: there is none
        std::string place;    // the one whose word is wrong; it is taken
    };
    /** Why words that fit the pattern one by one do not go together; may be null. */
    Problem (*problem)(const Arguments& arguments) = nullptr;
    bool canBeQuiet = false;  // may follow "quietly"
    /** An expectation that something has not happened: looked at once, when all is at rest. */
    bool isNegative = false;
};

/** An action, as a row of a table. */
[[nodiscard]] Form action(const char* pattern, const char* help, const char* example,
                          void (*play)(Player&, const Arguments&),
                          Form::Names names = Form::Names::Stay);
/** An action that may be done quietly. */
[[nodiscard]] Form quietAction(const char* pattern, const char* help, const char* example,
                               void (*play)(Player&, const Arguments&),
                               Form::Names names = Form::Names::Stay);
/** An expectation: the pattern without "expect", to which an option for its deadline is added. */
[[nodiscard]] Form expectation(const char* pattern, const char* help, const char* example,
                               Outcome (*check)(Player&, const Arguments&));

// The tables, each in a file of its own.
[[nodiscard]] std::vector<Form> appForms();
[[nodiscard]] std::vector<Form> callForms();
[[nodiscard]] std::vector<Form> systemForms();
[[nodiscard]] std::vector<Form> faultForms();
[[nodiscard]] std::vector<Form> stateExpectations();
[[nodiscard]] std::vector<Form> eventExpectations();
[[nodiscard]] std::vector<Form> orderForms();

struct FormGroup {
    std::string title;
    std::vector<Form> forms;
};
/** All of them, in the order of the documentation. Made once. */
[[nodiscard]] const std::vector<FormGroup>& formGroups();

}  // namespace sim::scenario
