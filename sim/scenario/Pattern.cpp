// SPDX-License-Identifier: Apache-2.0
// The shape of a command.
#include "scenario/Pattern.h"

#include <cctype>
#include <sstream>

#include "scenario/Kinds.h"

namespace sim::scenario {
namespace {

std::string kindOf(std::string name) {
    while (!name.empty() && isdigit(static_cast<unsigned char>(name.back())) != 0)
        name.pop_back();
    return name;
}

Pattern::Slot slotOf(std::string text) {
    Pattern::Slot slot;
    if (text.front() == '[') {
        slot.isOptional = true;
        text = text.substr(1, text.size() - 2);
    }
    const size_t equals = text.find('=');
    if (equals != std::string::npos) {
        slot.isOption = true;
        slot.name = text.substr(0, equals);
        slot.kind = kindOf(text.substr(equals + 1));
        return slot;
    }
    if (text.size() > 3 && text.ends_with("...")) {
        slot.isRepeated = true;
        text.resize(text.size() - 3);
    }
    slot.name = text;
    if (isupper(static_cast<unsigned char>(text[0])) != 0) slot.kind = kindOf(text);
    return slot;
}

Pattern::Match failure(std::string message, int column, size_t reached, std::string wanted = "") {
    return {std::nullopt, std::move(message), column, reached, std::move(wanted)};
}

}  // namespace

std::string Arguments::text(const std::string& name) const {
    const auto found = mWords.find(name);
    return found == mWords.end() ? "" : found->second.front().text;
}

int Arguments::number(const std::string& name, int missing) const {
    const auto found = mWords.find(name);
    return found == mWords.end() ? missing : std::stoi(found->second.front().text);
}

std::vector<std::string> Arguments::all(const std::string& name) const {
    std::vector<std::string> texts;
    const auto found = mWords.find(name);
    if (found == mWords.end()) return texts;
    for (const Word& word : found->second)
        texts.push_back(word.text);
    return texts;
}

std::vector<std::string> Arguments::list(const std::string& name) const {
    std::vector<std::string> parts;
    std::istringstream text(this->text(name));
    for (std::string part; std::getline(text, part, ',');)
        parts.push_back(part);
    return parts;
}

Pattern::Pattern(const std::string& text) {
    std::istringstream words(text);
    for (std::string word; words >> word;)
        mSlots.push_back(slotOf(word));
}

std::string Pattern::verb() const {
    std::string text;
    for (const Slot& slot : mSlots) {
        if (!slot.kind.empty()) break;
        text += (text.empty() ? "" : " ") + slot.name;
    }
    return text;
}

const Pattern::Slot* Pattern::option(const std::string& key) const {
    for (const Slot& slot : mSlots) {
        if (slot.isOption && slot.name == key) return &slot;
    }
    return nullptr;
}

Pattern::Match Pattern::match(const std::vector<Word>& words, int endColumn,
                              const Scope& scope) const {
    Arguments arguments;
    std::vector<const Word*> plain;
    for (const Word& word : words) {
        if (word.key.empty()) plain.push_back(&word);
    }
    size_t next = 0;
    for (const Slot& slot : mSlots) {
        if (slot.isOption) continue;
        if (next == plain.size()) {
            if (slot.isOptional) continue;
            const std::string wanted = expectationOf(slot);
            return failure("here " + wanted + " is missing", endColumn, next, wanted);
        }
        do {
            const Word& word = *plain[next];
            if (slot.kind.empty()) {
                if (word.text != slot.name) {
                    return failure("expected '" + slot.name + "', got '" + word.text + "'",
                                   word.column, next, expectationOf(slot));
                }
            } else {
                const std::string wrong = checkKind(slot.kind, word.text, scope);
                if (!wrong.empty()) {
                    return failure(wrong, word.column, next, expectationOf(slot));
                }
                arguments.add(slot.name, word);
            }
            ++next;
        } while (slot.isRepeated && next < plain.size());
    }
    if (next < plain.size()) {
        return failure("'" + plain[next]->text + "' is too much here", plain[next]->column, next);
    }
    for (const Word& word : words) {
        if (word.key.empty()) continue;
        const Slot* slot = option(word.key);
        if (slot == nullptr) {
            return failure("there is no option '" + word.key + "' here", word.column, next);
        }
        if (arguments.has(word.key)) {
            return failure("'" + word.key + "' is given twice", word.column, next);
        }
        const std::string wrong = checkKind(slot->kind, word.text, scope);
        if (!wrong.empty()) return failure(wrong, word.column, next);
        arguments.add(word.key, word);
    }
    for (const Slot& slot : mSlots) {
        if (!slot.isOption || slot.isOptional || arguments.has(slot.name)) continue;
        return failure("here " + expectationOf(slot) + " is missing", endColumn, next);
    }
    return {std::move(arguments), "", 0, next};
}

}  // namespace sim::scenario
