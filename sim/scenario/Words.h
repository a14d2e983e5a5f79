// SPDX-License-Identifier: Apache-2.0
//
// A line of a scenario, cut into words.
//
//      expect log "tracking = on" within=3   # a comment
//             ^   ^               ^ an option: key, '=' and a value
//             |   a word with blanks in it, in quotes: \" \\ and \n mean what they do elsewhere
//             a word
//
// Columns count characters from 1, as editors do. A line must be UTF-8 without control characters
// other than tabs.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace sim::scenario {

/** Where something stands in a scenario. Line 0: in none, for instance at the prompt. */
struct Place {
    std::string file;
    int line = 0;
    int column = 1;

    /** "FILE:LINE:COLUMN", or what of it there is. */
    [[nodiscard]] std::string text() const;
};

/** Something that is wrong with a scenario. */
struct Mistake {
    Place place;
    std::string message;
    std::string line;     // the text of the line, for people
    std::string usage{};  // of the command that comes nearest; may be empty

    /** "FILE:LINE:COLUMN: message", the line, a caret below, and the usage. */
    [[nodiscard]] std::string text() const;
    /** The same without its place. */
    [[nodiscard]] std::string textWithoutPlace() const;
};

struct Word {
    std::string text;
    int column = 1;
    std::string key;  // of an option, whose value is the text then; empty: a plain word
};

/** The longest line, in bytes. */
constexpr size_t kLongestLine = 4096;

/** Words of a line without its end, or what is wrong with it (with column and message only). */
[[nodiscard]] std::variant<std::vector<Word>, Mistake> splitLine(std::string_view line);

/** A text without the byte order mark that some editors begin it with, and nobody sees. */
[[nodiscard]] std::string_view withoutByteOrderMark(std::string_view text);

/** A line without the blanks around it. */
[[nodiscard]] std::string_view trimmed(std::string_view line);

/** The word as it would have to be written, quoted where needed. */
[[nodiscard]] std::string quoted(const std::string& word);

}  // namespace sim::scenario
