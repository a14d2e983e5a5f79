// SPDX-License-Identifier: Apache-2.0
// What could be typed next at the prompt.
#include "scenario/Completion.h"

#include <set>
#include <utility>

#include "scenario/Help.h"
#include "scenario/Kinds.h"
#include "scenario/Words.h"

namespace sim::scenario {
namespace {

using Candidates = std::set<std::string>;

/** All but the last part of a list with commas, whose last part is being typed. */
std::string listBefore(const Pattern::Slot& slot, const std::string& typed) {
    const bool isList = slot.kind == "PACKAGES" || slot.kind == "PERMISSIONS";
    const size_t comma = typed.rfind(',');
    return !isList || comma == std::string::npos ? "" : typed.substr(0, comma + 1);
}

void addChoices(const Pattern::Slot& slot, const std::string& before, const Scope& scope,
                Candidates* out) {
    if (slot.kind.empty()) out->insert(slot.name);
    for (const std::string& choice : choicesOf(slot.kind, scope))
        out->insert(before + choice);
}

bool takes(const Pattern::Slot& slot, const std::string& word, const Scope& scope) {
    return slot.kind.empty() ? slot.name == word : checkKind(slot.kind, word, scope).empty();
}

/** The plain words that may follow those that stand there; none when those do not fit. */
void addNextWords(const Pattern& pattern, const std::vector<std::string>& plain, const Scope& scope,
                  Candidates* out) {
    size_t next = 0;
    for (const Pattern::Slot& slot : pattern.slots()) {
        if (slot.isOption) continue;
        bool wasTaken = false;
        while (next < plain.size() && (slot.isRepeated || !wasTaken)) {
            if (!takes(slot, plain[next], scope)) return;
            ++next;
            wasTaken = true;
        }
        if (next < plain.size()) continue;
        if (wasTaken && !slot.isRepeated) continue;
        addChoices(slot, "", scope, out);
        if (!wasTaken && !slot.isOptional) return;
    }
}

/** Whether the words begin this form, as far as they go, or are all that it must have. */
bool fits(const Pattern& pattern, const std::vector<std::string>& plain, bool all,
          const Scope& scope) {
    size_t next = 0;
    for (const Pattern::Slot& slot : pattern.slots()) {
        if (slot.isOption) continue;
        bool wasTaken = false;
        do {
            if (next == plain.size()) return !all || slot.isOptional || wasTaken;
            if (!takes(slot, plain[next], scope)) return false;
            ++next;
            wasTaken = true;
        } while (slot.isRepeated);
    }
    return next == plain.size();
}

/** The words before the one that is typed, of which options and plain ones. */
struct Before {
    std::vector<std::string> plain;
    std::set<std::string> keys;
};

void addOptions(const Pattern& pattern, const Before& before, const std::string& typed,
                const Scope& scope, Candidates* out) {
    const size_t equals = typed.find('=');
    for (const Pattern::Slot& slot : pattern.slots()) {
        if (!slot.isOption || before.keys.contains(slot.name)) continue;
        const std::string key = slot.name + "=";
        if (equals == std::string::npos) {
            out->insert(key);
        } else if (typed.starts_with(key)) {
            addChoices(slot, key + listBefore(slot, typed.substr(key.size())), scope, out);
        }
    }
}

/** The command within "quietly ..." and "wait until ...". */
void unwrap(std::vector<std::string>* plain) {
    if (!plain->empty() && plain->front() == "quietly") plain->erase(plain->begin());
    if (plain->size() > 1 && plain->at(0) == "wait" && plain->at(1) == "until") {
        plain->erase(plain->begin());
        plain->front() = "expect";
    }
}

}  // namespace

Completion complete(std::string_view line, const Scope& scope) {
    const size_t blank = line.find_last_of(" \t");
    const size_t start = blank == std::string_view::npos ? 0 : blank + 1;
    const std::string typed(line.substr(start));
    const auto split = splitLine(line.substr(0, start));
    const auto* words = std::get_if<std::vector<Word>>(&split);
    if (words == nullptr) return {};  // within quotes, for instance
    Before before;
    for (const Word& word : *words) {
        if (word.key.empty()) {
            before.plain.push_back(word.text);
        } else {
            before.keys.insert(word.key);
        }
    }
    unwrap(&before.plain);
    const bool isAboutCommands = !before.plain.empty() && before.plain.front() == "help";
    if (isAboutCommands) before.plain.erase(before.plain.begin());
    Candidates candidates;
    for (const FormGroup* group : helpGroups()) {
        for (const Form& form : group->forms) {
            addNextWords(form.pattern, before.plain, scope, &candidates);
            const bool hasOptions = !isAboutCommands && !before.plain.empty();
            if (hasOptions && fits(form.pattern, before.plain, /*all=*/typed.empty(), scope)) {
                addOptions(form.pattern, before, typed, scope, &candidates);
            }
        }
    }
    Completion completion;
    completion.typed = typed.size();
    for (const std::string& candidate : candidates) {
        if (candidate.starts_with(typed)) completion.words.push_back(candidate);
    }
    return completion;
}

}  // namespace sim::scenario
