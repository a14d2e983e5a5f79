// SPDX-License-Identifier: Apache-2.0
// Help on the language.
#include "scenario/Help.h"

namespace sim::scenario {
namespace {

Form described(const char* pattern, const char* help, const char* example) {
    return action(pattern, help, example, /*play=*/nullptr);
}

/** Whether the literal words at the start of a form are these, as far as it has as many. */
bool beginsWith(const Form& form, const std::vector<std::string>& words) {
    const auto& slots = form.pattern.slots();
    for (size_t index = 0; index < words.size(); ++index) {
        if (index == slots.size() || !slots[index].kind.empty()) return index > 0;
        if (slots[index].name != words[index]) return false;
    }
    return true;
}

std::vector<const Form*> formsFor(const std::vector<std::string>& words) {
    std::vector<const Form*> found;
    for (const FormGroup* group : helpGroups()) {
        for (const Form& form : group->forms) {
            if (beginsWith(form, words)) found.push_back(&form);
        }
    }
    return found;
}

}  // namespace

const FormGroup& aroundForms() {
    static const FormGroup kGroup{
            "Around commands",
            {
                    described("quietly WORD...",
                              "do a command of the system without any notice: what services "
                              "answer changes, and nobody is told",
                              "quietly front game"),
                    described("wait until WORD...",
                              "wait for what could be expected; it need not stay so",
                              "wait until focus game both"),
                    described("end", "the end of what `repeat` began", "end"),
            }};
    return kGroup;
}

const FormGroup& dialogueForms() {
    static const FormGroup kGroup{
            "At the prompt only",
            {
                    described("help [WORD...]", "all commands, or those that begin with a word",
                              "help expect focus"),
                    described("list", "the apps, and what the daemon answers about each", "list"),
                    described("save FILE", "write what was done so far as a scenario",
                              "save mine.scenario"),
                    described("quit", "end the session, as Ctrl-D does", "quit"),
            }};
    return kGroup;
}

std::vector<const FormGroup*> helpGroups() {
    std::vector<const FormGroup*> groups;
    for (const FormGroup& group : formGroups())
        groups.push_back(&group);
    groups.push_back(&aroundForms());
    groups.push_back(&dialogueForms());
    return groups;
}

std::string helpForAll() {
    std::string text;
    for (const FormGroup* group : helpGroups()) {
        if (group->forms.empty()) continue;
        text += (text.empty() ? "" : "\n") + group->title + "\n";
        for (const Form& form : group->forms)
            text += "  " + form.usage + "\n";
    }
    return text + "\nhelp VERB says what a command does, with an example.\n";
}

std::string helpFor(const std::vector<std::string>& words) {
    std::string text;
    for (const Form* form : formsFor(words)) {
        text += (text.empty() ? "" : "\n") + form->usage + "\n    " + form->help +
                "\n    example: " + form->example + "\n";
    }
    if (!text.empty()) return text;
    return "there is no command '" + words.front() + "'; help without a word lists all\n";
}

Json::Value helpAsJson(const std::vector<std::string>& words) {
    Json::Value forms(Json::arrayValue);
    for (const Form* form : formsFor(words)) {
        Json::Value entry(Json::objectValue);
        entry["usage"] = form->usage;
        entry["help"] = form->help;
        entry["example"] = form->example;
        forms.append(entry);
    }
    return forms;
}

}  // namespace sim::scenario
