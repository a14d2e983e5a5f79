// SPDX-License-Identifier: Apache-2.0
// The course of a scenario as its lines alone tell it.
#include "scenario/Course.h"

#include <utility>
#include <vector>

#include "world/World.h"

namespace sim::scenario {
namespace {

constexpr const char* kAddDisplay = "display add";
constexpr const char* kRemoveDisplay = "display remove";

Complaint at(const Command& command, const std::string& place, std::string message) {
    return {command.arguments.words().at(place).front().column, std::move(message)};
}

std::string displayText(const Arguments& arguments, const std::string& place) {
    return "display " + std::to_string(arguments.number(place));
}

std::optional<Complaint> aboutDisplay(const Command& command, const Scope& scope) {
    const int display = command.arguments.number("DISPLAY");
    const std::string text = displayText(command.arguments, "DISPLAY");
    const bool isAdded = command.form->pattern.verb() == kAddDisplay;
    if (isAdded && scope.hasDisplay(display))
        return at(command, "DISPLAY", "there is a " + text + " already");
    if (!isAdded && !scope.hasDisplay(display))
        return at(command, "DISPLAY", "there is no " + text + " by then");
    if (!isAdded && display == World::kPrimaryDisplay)
        return at(command, "DISPLAY", "the main display stays");
    return {};
}

std::optional<Complaint> aboutReuse(const Command& command, const Scope& scope) {
    const std::string app = command.arguments.text("APP");
    const Scope::Origin* origin = scope.originOf(app);
    if (origin == nullptr || origin->isReusable) return {};
    const int uid = command.arguments.number("uid");
    // A free uid may be any from the first of them on.
    const bool isOther = origin->uid ? *origin->uid != uid : uid < Scope::kFirstFreeUid;
    if (!isOther) return {};
    return at(command, "APP",
              "'" + app + "' was started without reusable=yes: its pid keeps its uid");
}

std::vector<std::string> packagesOf(const Arguments& arguments, const std::string& process) {
    if (arguments.has("packages")) return arguments.list("packages");
    return {packageOfProcess(process)};
}

Scope::Origin originIn(const Command& command, const Scope& scope) {
    const Arguments& arguments = command.arguments;
    const std::string name = arguments.text("NAME");
    const Scope::Origin* before = scope.originOf(name);
    Scope::Origin origin;
    origin.process = arguments.has("process") ? arguments.text("process")
                     : before != nullptr      ? before->process
                                              : name;
    origin.isReusable = arguments.text("reusable") == "yes";
    if (arguments.has("uid")) {
        origin.uid = arguments.number("uid");
        return origin;
    }
    for (const std::string& package : packagesOf(arguments, origin.process)) {
        if (scope.isInstalled(package)) {
            origin.uid = scope.uidOfPackage(package);
            return origin;
        }
    }
    if (before != nullptr) origin.uid = before->uid;
    return origin;
}

/** An app, whose packages come with it, or a native process. */
void begin(const Command& command, Scope* scope) {
    const std::string name = command.arguments.text("NAME");
    Scope::Origin origin = originIn(command, *scope);
    if (command.form->pattern.verb() != "native") {
        for (const std::string& package : packagesOf(command.arguments, origin.process))
            scope->install(package, origin.uid);
    }
    scope->start(name, std::move(origin));
}

void applyNames(const Command& command, Scope* scope) {
    const Arguments& arguments = command.arguments;
    switch (command.form->names) {
        case Form::Names::Stay:
            break;
        case Form::Names::Start:
            begin(command, scope);
            break;
        case Form::Names::End:
            if (scope->knows(arguments.text("APP"))) scope->end(arguments.text("APP"));
            if (scope->knows(arguments.text("TARGET"))) scope->end(arguments.text("TARGET"));
            break;
        case Form::Names::Replace: {
            const Scope::Origin* before = scope->originOf(arguments.text("APP"));
            const std::optional<Scope::Origin> old =
                    before == nullptr ? std::nullopt : std::optional(*before);
            const std::string name = arguments.text("NAME");
            scope->end(arguments.text("APP"));
            begin(command, scope);
            if (!old) return scope->start(name);
            Scope::Origin origin = *scope->originOf(name);
            origin.isReusable = old->isReusable;
            scope->start(name, std::move(origin));
            break;
        }
    }
}

}  // namespace

std::optional<Complaint> complaintAbout(const Command& command, const Scope& scope) {
    if (command.form == nullptr || !scope.isSure()) return {};
    const Arguments& arguments = command.arguments;
    const std::string verb = command.form->pattern.verb();
    if (verb == kAddDisplay || verb == kRemoveDisplay) return aboutDisplay(command, scope);
    if (verb == "reuse") return aboutReuse(command, scope);
    const bool isOfPackage = verb == "allow" || verb == "deny";
    if (isOfPackage && !scope.isInstalled(arguments.text("PACKAGE"))) {
        return at(command, "PACKAGE",
                  "package '" + arguments.text("PACKAGE") + "' is not installed by then");
    }
    if (verb == "install" && scope.isInstalled(arguments.text("PACKAGE"))) {
        return at(command, "PACKAGE",
                  "package '" + arguments.text("PACKAGE") + "' is installed already");
    }
    const bool isOfActivity = verb == "front" || verb == "back";
    if (isOfActivity && arguments.has("display") && !scope.hasDisplay(arguments.number("display")))
        return at(command, "display",
                  "there is no " + displayText(arguments, "display") + " by then");
    return {};
}

void applyTo(const Command& command, Scope* scope) {
    if (command.form == nullptr) {
        for (const Command& each : command.body)
            applyTo(each, scope);
        return;
    }
    const Arguments& arguments = command.arguments;
    for (const char* package : {"PACKAGE", "process"}) {
        if (arguments.has(package)) scope->addPackage(arguments.text(package));
    }
    applyNames(command, scope);
    const std::string verb = command.form->pattern.verb();
    if (verb == "install") scope->install(arguments.text("PACKAGE"), arguments.number("uid"));
    if (verb == kAddDisplay) scope->addDisplay(arguments.number("DISPLAY"));
    const bool isRemoved =
            verb == kRemoveDisplay && arguments.number("DISPLAY") != World::kPrimaryDisplay;
    if (isRemoved) scope->removeDisplay(arguments.number("DISPLAY"));
    if (verb == "random") scope->loosen();
}

}  // namespace sim::scenario
