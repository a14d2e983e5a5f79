// SPDX-License-Identifier: Apache-2.0
// A headset that is led line by line.
#include "scenario/Dialogue.h"

#include <errno.h>
#include <signal.h>
#include <string.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <utility>

#include "scenario/Course.h"
#include "scenario/Help.h"
#include "scenario/Vocabulary.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

constexpr size_t kIndentation = 4;
constexpr const char* kStatus = "status";

/** A command as lines of a scenario. */
std::string linesOf(const Command& command, size_t depth = 0) {
    const std::string indentation(depth * kIndentation, ' ');
    std::string lines = indentation + command.text + "\n";
    if (command.form != nullptr) return lines;
    for (const Command& each : command.body)
        lines += linesOf(each, depth + 1);
    return lines + indentation + "end\n";
}

/** A call as it ended; empty when the command is none, but made some. */
std::string callWith(const std::string& status, const Command& command) {
    const auto& slots = command.form->pattern.slots();
    const bool isCall = std::any_of(slots.begin(), slots.end(),
                                    [](const Pattern::Slot& slot) { return slot.name == kStatus; });
    if (!isCall) return "";
    std::string line;
    const auto split = splitLine(command.text);
    for (const Word& word : std::get<std::vector<Word>>(split)) {
        if (word.key == kStatus) continue;
        line += (word.key.empty() ? "" : word.key + "=") + quoted(word.text) + " ";
    }
    return line + kStatus + "=" + status + "\n";
}

/** Adds those that a command plays one after the other, until there are so many. */
void addFirst(const Command& command, size_t count, std::vector<const Command*>* out) {
    if (out->size() == count) return;
    if (command.form != nullptr) return out->push_back(&command);
    for (int round = 0; round < command.repeats && out->size() < count; ++round) {
        const size_t before = out->size();
        for (const Command& each : command.body)
            addFirst(each, count, out);
        if (out->size() == before) return;  // nor do other rounds
    }
}

/** The form of a command that is for dialogues alone; null: it is none. */
const Form* ownForm(const std::string& verb) {
    for (const Form& form : dialogueForms().forms) {
        if (form.pattern.verb() == verb) return &form;
    }
    return nullptr;
}

/** What `list` stands for is a command of scenarios, too. */
const Form& showForm() {
    const auto& forms = formGroups().back().forms;
    return *std::find_if(forms.begin(), forms.end(),
                         [](const Form& form) { return form.usage == "show"; });
}

}  // namespace

std::string Reply::complaint() const {
    switch (kind) {
        case Kind::Mistake:
            return mistake.textWithoutPlace();
        case Kind::Unmet:
            return "not as expected\n    expected  " + outcome.expected + "\n    got       " +
                   outcome.got;
        case Kind::Failed:
        case Kind::NoHeadset:
            return message;
        case Kind::Interrupted:
            return "interrupted";
        default:
            return "";
    }
}

Reply Dialogue::take(std::string_view line) {
    ++mLine;
    return counted(answerTo(line));
}

Reply Dialogue::counted(Reply reply) {
    reply.line = mLine;
    const bool isBad = reply.kind == Reply::Kind::Unmet || reply.kind == Reply::Kind::Failed ||
                       reply.kind == Reply::Kind::NoHeadset;
    if (isBad) mStatus = 1;
    if (reply.kind == Reply::Kind::Mistake && mStatus == 0) mStatus = 2;
    return reply;
}

Reply Dialogue::answerTo(std::string_view line) {
    Reply reply;
    if (line.size() <= kLongestLine) reply.command = trimmed(line);
    const Scope before = mReader.scope();
    if (!mReader.isInBlock()) mOutside = before;
    if (!mReader.isInWrongBlock()) mBeforeWrong = before;
    auto taken = mReader.take(line);
    auto* mistake = std::get_if<Mistake>(&taken);
    // With the block that a mistake has ended goes what its lines would have done.
    if (mistake != nullptr) mReader.scope() = mReader.isInBlock() ? before : mOutside;
    const auto split = splitLine(line);
    const auto* words = std::get_if<std::vector<Word>>(&split);
    const Form* own = words == nullptr || words->empty() ? nullptr : ownForm(words->front().text);
    if (own != nullptr && mistake != nullptr) {
        const Word& last = words->back();
        const int end = last.column + static_cast<int>(last.text.size());
        const Pattern::Match match = own->pattern.match(*words, end, mReader.scope());
        if (match.arguments) {
            doOwn(own->pattern.verb(), *match.arguments, &reply);
            return reply;
        }
        mistake->place.column = match.column;
        mistake->message = match.message;
        mistake->usage = own->usage;
    }
    if (mistake != nullptr) {
        reply.kind = Reply::Kind::Mistake;
        reply.mistake = std::move(*mistake);
    } else if (std::holds_alternative<LineReader::Dropped>(taken)) {
        drop(&reply);
    } else if (auto* command = std::get_if<Command>(&taken)) {
        mCommand = std::move(*command);
        playTaken(&reply);
    } else if (!words->empty()) {
        reply.kind = Reply::Kind::Taken;
    }
    return reply;
}

void Dialogue::playTaken(Reply* reply) {
    const size_t before = mPlayer.doneInBlocks();
    attempt([this] { mPlayer.play(mCommand); }, reply);
    if (reply->kind == Reply::Kind::Done) {
        mDone += linesOf(mCommand);
        matchScope(mReader.scope());
    } else {
        keepWhatWasDone(mPlayer.doneInBlocks() - before, reply->outcome.status);
    }
}

void Dialogue::keepWhatWasDone(size_t count, const std::string& status) {
    std::vector<const Command*> begun;
    addFirst(mCommand, count + 1, &begun);
    Scope scope = mOutside;
    for (size_t index = 0; index < count; ++index) {
        mDone += linesOf(*begun[index]);
        applyTo(*begun[index], &scope);
    }
    if (!status.empty()) mDone += callWith(status, *begun.back());
    matchScope(std::move(scope));
}

Reply Dialogue::finish() {
    const std::vector<Mistake> mistakes = mReader.finish();
    if (mistakes.empty()) return {};
    Reply reply;
    reply.kind = Reply::Kind::Mistake;
    reply.mistake = mistakes.front();
    ++mLine;
    return counted(std::move(reply));
}

void Dialogue::attempt(const std::function<void()>& work, Reply* reply) {
    try {
        work();
        reply->kind = Reply::Kind::Done;
    } catch (const ExpectationFailed& unmet) {
        reply->kind = Reply::Kind::Unmet;
        reply->message = unmet.what();
        reply->outcome = unmet.outcome();
        reply->events = unmet.events();
    } catch (const SessionError& error) {
        const bool booted = mPlayer.booted() != nullptr;
        reply->kind = booted ? Reply::Kind::Failed : Reply::Kind::NoHeadset;
        reply->message = error.what();
    } catch (const SessionStopped& stopped) {
        if (stopped.signal() != SIGINT || !mIsInterruptible) throw;
        reply->kind = Reply::Kind::Interrupted;
    }
}

void Dialogue::drop(Reply* reply) {
    reply->kind = Reply::Kind::Mistake;
    reply->mistake.message = "nothing of this block is done: its 'repeat' was a mistake";
    if (!isInBlock()) {
        matchScope(mBeforeWrong);
    } else if (!mReader.isInWrongBlock()) {
        mReader.scope() = mBeforeWrong;
    }
}

void Dialogue::abandonBlock() {
    if (!isInBlock()) return;
    mReader.abandonBlock();
    matchScope(mOutside);
}

void Dialogue::matchScope(Scope scope) {
    if (const Headset* headset = mPlayer.booted()) {
        for (const std::string& name : headset->cast()) {
            // One that runs as the lines say keeps what they say of it.
            if (name == kObserver || headset->appRuns(name) == scope.runs(name)) continue;
            if (headset->appRuns(name)) {
                scope.start(name);
            } else {
                scope.end(name);
            }
        }
    }
    mReader.scope() = std::move(scope);
}

void Dialogue::tellEnded() {
    for (const std::string& app : mPlayer.tellEnded()) {
        // Within a block names are what they will be when it is played.
        if (!isInBlock()) mReader.scope().end(app);
    }
}

void Dialogue::doOwn(const std::string& verb, const Arguments& arguments, Reply* reply) {
    reply->kind = Reply::Kind::Done;
    if (verb == "quit") {
        reply->kind = Reply::Kind::Quit;
    } else if (verb == "save") {
        save(arguments.text("FILE"), reply);
    } else if (verb == "help") {
        const std::vector<std::string> about = arguments.all("WORD");
        const std::string text = about.empty() ? helpForAll() : helpFor(about);
        mReporter.answer(text, helpAsJson(about));
    } else {
        attempt(
                [this] {
                    mPlayer.boot();
                    showForm().play(mPlayer, {});
                },
                reply);
    }
}

void Dialogue::save(const std::string& path, Reply* reply) {
    // "x": never over a file that is there.
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "wxe"), std::fclose);
    if (file != nullptr && std::fwrite(mDone.data(), 1, mDone.size(), file.get()) == mDone.size() &&
        std::fflush(file.get()) == 0) {
        return;
    }
    reply->kind = Reply::Kind::Failed;
    reply->message = path + ": " + strerror(errno);
}

}  // namespace sim::scenario
