// SPDX-License-Identifier: Apache-2.0
// A scenario, read and checked.
#include "scenario/Script.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <utility>

#include "scenario/Course.h"
#include "scenario/Kinds.h"
#include "scenario/Vocabulary.h"

namespace sim::scenario {
namespace {

constexpr size_t kDeepestBlock = 8;
constexpr size_t kLargestFile = 16 << 20;

/** The verb itself, or one that is easily mistyped so; empty when there is none. */
std::string nearestVerb(const std::string& word) {
    std::string nearest;
    size_t least = 3;
    for (const FormGroup& group : formGroups()) {
        for (const Form& form : group.forms) {
            const std::string& verb = form.pattern.slots().front().name;
            const size_t distance = distanceBetween(word, verb);
            if (distance < least) {
                least = distance;
                nearest = verb;
            }
        }
    }
    return nearest;
}

std::string unknownVerb(const std::string& word) {
    const std::string nearest = nearestVerb(word);
    const std::string text = "there is no command '" + word + "'";
    return nearest.empty() ? text : text + "; did you mean '" + nearest + "'?";
}

/** Whether a line, which may be no words at all, is meant to begin a block. */
bool isMeantAsBlock(std::string_view line) {
    std::istringstream words{std::string(line)};
    std::string verb;
    words >> verb;
    if (verb == "quietly") words >> verb;
    if (verb == "repeat") return true;
    int count = 0;
    return nearestVerb(verb) == "repeat" && words >> count;
}

/** How many words of a form's own stand where it wants them. */
size_t literalsIn(const Form& form, const std::vector<Word>& words) {
    size_t count = 0;
    auto word = words.begin();
    for (const Pattern::Slot& slot : form.pattern.slots()) {
        if (slot.isOption) continue;
        while (word != words.end() && !word->key.empty())
            ++word;
        if (word == words.end()) break;
        if (slot.kind.empty() && slot.name == word->text) ++count;
        ++word;
    }
    return count;
}

/** The forms that come nearest to words that are none. */
class Nearest {
public:
    explicit Nearest(const std::vector<Word>& words) : mWords(words) {}

    void add(const Form& form, Pattern::Match match) {
        const bool isAsFar = mForm != nullptr && match.reached == mMatch.reached;
        if (isAsFar && literalsIn(form, mWords) > literalsIn(*mForm, mWords)) mForm = &form;
        if (mForm == nullptr || match.reached > mMatch.reached) {
            mForm = &form;
            mMatch = std::move(match);
            mWanted = {mMatch.wanted};
        } else if (match.reached == mMatch.reached) {
            const bool isNew =
                    std::find(mWanted.begin(), mWanted.end(), match.wanted) == mWanted.end();
            if (isNew) mWanted.push_back(std::move(match.wanted));
        }
    }

    /** One of them; null when there is none. */
    [[nodiscard]] const Form* form() const { return mForm; }
    [[nodiscard]] int column() const { return mMatch.column; }
    /** Of several, which differ in the word that was wrong, all that could stand there. */
    [[nodiscard]] std::string messageFor(const std::vector<Word>& words) const {
        if (!areSeveral()) return mMatch.message;
        const auto wrong = std::find_if(words.begin(), words.end(), [this](const Word& word) {
            return word.key.empty() && word.column == mMatch.column;
        });
        if (wrong == words.end()) return "here " + joined(mWanted) + " is missing";
        return "expected " + joined(mWanted) + ", got '" + wrong->text + "'";
    }
    [[nodiscard]] std::string usage() const { return areSeveral() ? "" : mForm->usage; }

private:
    [[nodiscard]] bool areSeveral() const {
        return mWanted.size() > 1 && std::find(mWanted.begin(), mWanted.end(), "") == mWanted.end();
    }

    const std::vector<Word>& mWords;
    const Form* mForm = nullptr;
    Pattern::Match mMatch;
    std::vector<std::string> mWanted;
};

}  // namespace

Mistake LineReader::mistake(int column, const std::string& message, std::string_view line) const {
    std::string text(line);
    while (!text.empty() && (text.back() == '\r' || text.back() == '\n'))
        text.pop_back();
    // A line that is no text is not shown: it would not be readable.
    const bool readable = std::holds_alternative<std::vector<Word>>(splitLine(line)) ||
                          std::all_of(text.begin(), text.end(), [](char each) {
                              return each == '\t' || static_cast<unsigned char>(each) >= 0x20;
                          });
    const bool isText = readable && message.find("UTF-8") == std::string::npos;
    return {{mFile, mLine, column}, message, isText ? text : ""};
}

LineReader::Result LineReader::take(std::string_view line) {
    ++mLine;
    Result result = takeLine(line);
    // One mistake is told once: its 'end' is not wrong for that.
    if (std::holds_alternative<Mistake>(result) && isMeantAsBlock(line)) {
        mWrongBlocks.push_back(mBlocks.size());
    }
    return result;
}

LineReader::Result LineReader::takeLine(std::string_view line) {
    auto split = splitLine(line);
    if (const auto* wrong = std::get_if<Mistake>(&split)) {
        return mistake(wrong->place.column, wrong->message, line);
    }
    auto& words = std::get<std::vector<Word>>(split);
    if (words.empty()) return Nothing{};
    if (words[0].text == "end" && words[0].key.empty()) {
        if (words.size() > 1) {
            return mistake(words[1].column, "'end' takes no more words", line);
        }
        return endBlock(line);
    }
    auto parsed = parse(std::move(words), line);
    if (const auto* command = std::get_if<Command>(&parsed)) {
        if (const auto complaint = complaintAbout(*command, mScope)) {
            // One mistake is told once: lines below are not wrong for that.
            applyTo(*command, &mScope);
            parsed = mistake(complaint->column, complaint->message, line);
        }
    } else {
        mScope.doubt();
    }
    if (auto* wrong = std::get_if<Mistake>(&parsed)) return std::move(*wrong);
    return place(std::move(std::get<Command>(parsed)), line);
}

std::variant<Command, Mistake> LineReader::parse(std::vector<Word> words, std::string_view line) {
    Command command;
    command.place = {mFile, mLine, words[0].column};
    command.text = std::string(trimmed(line));
    const int end = words.back().column + static_cast<int>(words.back().text.size());
    if (words[0].text == "quietly") {
        command.quietly = true;
        words.erase(words.begin());
        if (words.empty()) return mistake(end, "what should be done quietly?", line);
    } else if (words[0].text == "wait" && words.size() > 1 && words[1].text == "until") {
        command.isWait = true;
        words.erase(words.begin());
        words[0].text = "expect";
    }
    Nearest nearest(words);
    for (const FormGroup& group : formGroups()) {
        for (const Form& form : group.forms) {
            if (form.pattern.slots().front().name != words[0].text) continue;
            Pattern::Match match = form.pattern.match(words, end, mScope);
            if (match.arguments && command.form == nullptr) {
                command.form = &form;
                command.arguments = std::move(*match.arguments);
            } else if (match.arguments) {
                continue;  // the first that fits
            } else {
                nearest.add(form, std::move(match));
            }
        }
    }
    if (command.form == nullptr && nearest.form() == nullptr) {
        return mistake(words[0].column, unknownVerb(words[0].text), line);
    }
    if (command.form == nullptr) {
        if (nearest.form()->names == Form::Names::Start) startAnyway(words);
        Mistake wrong = mistake(nearest.column(), nearest.messageFor(words), line);
        wrong.usage = nearest.usage();
        return wrong;
    }
    const Form::Problem problem = command.form->problem == nullptr
                                          ? Form::Problem()
                                          : command.form->problem(command.arguments);
    if (!problem.message.empty()) {
        const Word& wrong = command.arguments.words().at(problem.place).front();
        return mistake(wrong.column, problem.message, line);
    }
    if (command.quietly && !command.form->canBeQuiet) {
        return mistake(words[0].column, "this cannot be done quietly", line);
    }
    if (command.isWait && command.form->isNegative) {
        return mistake(words[0].column, "waiting wants something that will be", line);
    }
    return command;
}

void LineReader::startAnyway(const std::vector<Word>& words) {
    // One mistake is told once: lines below that name the app are not wrong for that.
    const bool isName = words.size() > 1 && words[1].key.empty() &&
                        checkKind("NAME", words[1].text, mScope).empty();
    if (isName) mScope.start(words[1].text);
}

LineReader::Result LineReader::place(Command command, std::string_view line) {
    if (command.form->pattern.verb() == "repeat") {
        if (mBlocks.size() == kDeepestBlock) {
            return mistake(command.place.column, "blocks within blocks: eight at most", line);
        }
        command.repeats = command.arguments.number("COUNT");
        command.form = nullptr;
        mBlocks.push_back(std::move(command));
        return Nothing{};
    }
    applyTo(command, &mScope);
    return keep(std::move(command));
}

LineReader::Result LineReader::keep(Command command) {
    if (isInnermostWrong()) return Nothing{};
    if (mBlocks.empty()) return command;
    mBlocks.back().body.push_back(std::move(command));
    return Nothing{};
}

LineReader::Result LineReader::endBlock(std::string_view line) {
    if (isInnermostWrong()) {
        mWrongBlocks.pop_back();
        return Dropped{};
    }
    if (mBlocks.empty()) return mistake(1, "'end' without 'repeat'", line);
    Command block = std::move(mBlocks.back());
    mBlocks.pop_back();
    const std::string wrong = block.repeats > 1 ? checkAgain(block.body) : "";
    if (!wrong.empty()) return mistake(1, "when this is repeated: " + wrong, line);
    return keep(std::move(block));
}

std::string LineReader::checkAgain(const std::vector<Command>& body) {
    // Names as they are after the first round: a second one must fit them.
    for (const Command& command : body) {
        if (command.form == nullptr) {
            std::string wrong = checkAgain(command.body);
            if (!wrong.empty()) return wrong;
            continue;
        }
        auto words = std::get<std::vector<Word>>(splitLine(command.text));
        if (command.quietly || command.isWait) words.erase(words.begin());
        if (command.isWait) words[0].text = "expect";
        const auto match = command.form->pattern.match(words, 0, mScope);
        const auto complaint = match.arguments ? complaintAbout(command, mScope) : std::nullopt;
        if (!match.arguments || complaint) {
            return "line " + std::to_string(command.place.line) + ": " +
                   (complaint ? complaint->message : match.message);
        }
        applyTo(command, &mScope);
    }
    return "";
}

std::vector<Mistake> LineReader::finish() const {
    std::vector<Mistake> mistakes;
    for (const Command& block : mBlocks)
        mistakes.push_back({block.place, "this 'repeat' has no 'end'", block.text});
    return mistakes;
}

Script Script::fromText(const std::string& file, std::string_view text) {
    Script script;
    script.file = file;
    LineReader reader(file);
    text = withoutByteOrderMark(text);
    while (!text.empty()) {
        if (script.mistakes.size() + script.moreMistakes == kMostFound) return script;
        const size_t end = text.find('\n');
        auto result = reader.take(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (auto* command = std::get_if<Command>(&result)) {
            script.commands.push_back(std::move(*command));
        } else if (auto* mistake = std::get_if<Mistake>(&result)) {
            script.add(std::move(*mistake));
        }
    }
    for (Mistake& mistake : reader.finish())
        script.add(std::move(mistake));
    return script;
}

void Script::add(Mistake mistake) {
    if (mistakes.size() < kMostMistakes) {
        mistakes.push_back(std::move(mistake));
    } else {
        ++moreMistakes;
    }
}

std::string Script::textOfMore() const {
    if (moreMistakes == 0) return "";
    const bool isAll = mistakes.size() + moreMistakes < kMostFound;
    return file + (isAll ? ": " : ": at least ") + std::to_string(moreMistakes) +
           (moreMistakes == 1 ? " more mistake" : " more mistakes");
}

Script Script::fromFile(const std::string& path) {
    const auto unreadable = [&](const std::string& why) {
        Script script;
        script.file = path;
        script.mistakes.push_back({{path, 0, 1}, why, ""});
        return script;
    };
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return unreadable(strerror(errno));
    if (S_ISDIR(status.st_mode)) return unreadable("a folder, not a scenario");
    // What is no plain file has no size, and may have no end.
    std::ifstream file(path, std::ios::binary);
    std::string text(kLargestFile + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (file.bad() || !file.is_open()) return unreadable("cannot be read");
    text.resize(static_cast<size_t>(file.gcount()));
    if (text.size() > kLargestFile) return unreadable("larger than 16 MiB");
    return fromText(path, text);
}

}  // namespace sim::scenario
