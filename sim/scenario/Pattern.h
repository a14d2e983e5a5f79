// SPDX-License-Identifier: Apache-2.0
//
// The shape of a command, written as its usage line:
//
//      start NAME [uid=UID] [process=PROCESS]
//      |     |    an option: its key, and the kind of its value
//      |     a word of a kind (see Kinds.h); a digit may follow to tell two of a kind apart
//      a word as it stands
//
// APP... stands for one and more words of a kind, [APP...] for any number, [APP] for one or none.
// The table of all commands is made of these: one text says what is accepted, is shown as usage and
// is what the prompt completes.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "scenario/Words.h"

namespace sim::scenario {

class Scope;

/** The words of a command, by the name of the place in the pattern that took them. */
class Arguments {
public:
    void add(const std::string& name, Word word) { mWords[name].push_back(std::move(word)); }

    [[nodiscard]] bool has(const std::string& name) const { return mWords.contains(name); }
    /** The word; empty when there is none. */
    [[nodiscard]] std::string text(const std::string& name) const;
    /** The number; the kind has checked that it is one. */
    [[nodiscard]] int number(const std::string& name, int missing = 0) const;
    [[nodiscard]] std::vector<std::string> all(const std::string& name) const;
    /** The parts of a list with commas. */
    [[nodiscard]] std::vector<std::string> list(const std::string& name) const;
    [[nodiscard]] const std::map<std::string, std::vector<Word>>& words() const { return mWords; }

private:
    std::map<std::string, std::vector<Word>> mWords;
};

class Pattern {
public:
    struct Slot {
        std::string name;  // a literal's text, a place's name, an option's key
        std::string kind;  // empty: a literal
        bool isOption = false;
        bool isOptional = false;
        bool isRepeated = false;
    };

    explicit Pattern(const std::string& text);

    [[nodiscard]] const std::vector<Slot>& slots() const { return mSlots; }
    /** The words before the first place: "expect focus". */
    [[nodiscard]] std::string verb() const;

    struct Match {
        std::optional<Arguments> arguments;  // when it matches
        std::string message;                 // else what is wrong,
        int column = 0;                      // where,
        size_t reached = 0;                  // after how many words,
        std::string wanted{};                // and which word would fit; empty: none
    };
    /** endColumn: where a missing word would stand. */
    [[nodiscard]] Match match(const std::vector<Word>& words, int endColumn,
                              const Scope& scope) const;

private:
    [[nodiscard]] const Slot* option(const std::string& key) const;

    std::vector<Slot> mSlots;
};

}  // namespace sim::scenario
