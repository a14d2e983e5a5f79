// SPDX-License-Identifier: Apache-2.0
//
// A scenario, read and checked: commands in order, with blocks that repeat.
//
// Everything that can be wrong with a text is found here, before anything is started.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "scenario/Form.h"
#include "scenario/Pattern.h"
#include "scenario/Scope.h"
#include "scenario/Words.h"

namespace sim::scenario {

struct Command {
    Place place;
    std::string text;            // as it was written, without comment and blanks around
    const Form* form = nullptr;  // null: a block that repeats
    Arguments arguments;
    bool quietly = false;  // no notice is sent
    bool isWait = false;   // "wait until"
    int repeats = 0;       // of a block
    std::vector<Command> body;
};

/**
 * Reads lines one by one. A command is complete when every block that its line began has ended.
 * One thread.
 */
class LineReader {
public:
    explicit LineReader(std::string file) : mFile(std::move(file)) {}

    struct Nothing {};  // an empty line, or a block that goes on
    struct Dropped {};  // the end of a block whose head was a mistake
    using Result = std::variant<Nothing, Dropped, Command, Mistake>;

    /**
     * A line without its end. After a mistake the line counts as if it were not there, but that
     * the head of a block begins one all the same: what is in it is checked, and dropped.
     */
    [[nodiscard]] Result take(std::string_view line);

    /** At the end of the text: a block that was not ended. */
    [[nodiscard]] std::vector<Mistake> finish() const;

    [[nodiscard]] bool isInBlock() const { return !mBlocks.empty() || isInWrongBlock(); }
    /** In one whose head was a mistake, at any depth. */
    [[nodiscard]] bool isInWrongBlock() const { return !mWrongBlocks.empty(); }
    /** Lets go of a block that was begun. */
    void abandonBlock() {
        mBlocks.clear();
        mWrongBlocks.clear();
    }
    /** Mistaken heads of blocks count as if they were not there, as other mistakes do. */
    void forgetWrongBlocks() { mWrongBlocks.clear(); }
    [[nodiscard]] const Scope& scope() const { return mScope; }
    [[nodiscard]] Scope& scope() { return mScope; }

private:
    [[nodiscard]] Result takeLine(std::string_view line);
    [[nodiscard]] Mistake mistake(int column, const std::string& message,
                                  std::string_view line) const;
    [[nodiscard]] std::variant<Command, Mistake> parse(std::vector<Word> words,
                                                       std::string_view line);
    void startAnyway(const std::vector<Word>& words);
    [[nodiscard]] Result place(Command command, std::string_view line);
    [[nodiscard]] Result endBlock(std::string_view line);
    [[nodiscard]] Result keep(Command command);
    /** Whether the innermost block is one whose head was a mistake. */
    [[nodiscard]] bool isInnermostWrong() const {
        return isInWrongBlock() && mWrongBlocks.back() == mBlocks.size();
    }
    [[nodiscard]] std::string checkAgain(const std::vector<Command>& body);

    const std::string mFile;
    int mLine = 0;
    Scope mScope;
    std::vector<Command> mBlocks;      // begun, the innermost last
    std::vector<size_t> mWrongBlocks;  // begun by a mistake, each within so many of the others
};

struct Script {
    std::string file;
    std::vector<Command> commands;
    std::vector<Mistake> mistakes;  // at most kMostMistakes
    static constexpr size_t kMostMistakes = 20;
    size_t moreMistakes = 0;  // found after these
    /** With so many no more is read. */
    static constexpr size_t kMostFound = 1000;

    /** "FILE: 3 more mistakes"; empty when there are none. */
    [[nodiscard]] std::string textOfMore() const;
    [[nodiscard]] static Script fromText(const std::string& file, std::string_view text);
    /** A file that cannot be read is a mistake. */
    [[nodiscard]] static Script fromFile(const std::string& path);

private:
    void add(Mistake mistake);
};

}  // namespace sim::scenario
