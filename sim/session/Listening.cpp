// SPDX-License-Identifier: Apache-2.0
// Who listens to the daemon, and what they must hear.
#include "session/Listening.h"

#include <algorithm>

#include "session/SessionError.h"

namespace sim {
namespace {

std::string count(const char* what, int due, int heard) {
    return std::string(what) + ": " + std::to_string(due) + " due, " + std::to_string(heard) +
           " heard";
}

bool isWrong(int due, int heard, bool tooLittle) {
    return heard > due || (tooLittle && heard < due);
}

}  // namespace

Listening::Listening(Headset& headset) : mHeadset(headset) {
    mEars[kHelper].top = true;
    mHeadset.onNotification([this](bool focusToo) { notified(focusToo); });
}

Listening::~Listening() {
    mHeadset.onNotification([](bool) {});
}

void Listening::startFocus(const std::string& app, int type) {
    request(app, "listenFocus", type);
    mEars[app].types.insert(type);
}

void Listening::stopFocus(const std::string& app, int type) {
    request(app, "unlistenFocus", type);
    mEars[app].types.erase(type);
}

void Listening::startTop(const std::string& app) {
    request(app, "listenTop", 0);
    mEars[app].top = true;
}

void Listening::forget(const std::string& app) {
    mEars.erase(app);
}

void Listening::settle() {
    std::string tooMuch;
    try {
        mHeadset.awaitTrue("everybody has heard what is due", [&] {
            hear();
            tooMuch = wrong(/*tooLittle=*/false);
            if (!tooMuch.empty()) throw SessionError(tooMuch);
            return wrong(/*tooLittle=*/true).empty();
        });
    } catch (const SessionError& error) {
        const std::string difference = wrong(/*tooLittle=*/true);
        if (difference.empty() || !tooMuch.empty()) throw;
        throw SessionError("the daemon's notices are not those that are due:" + difference);
    }
}

void Listening::expectLast(const Told& due) const {
    std::string text;
    for (const auto& [name, ear] : mEars) {
        const Told& own = name == kHelper ? due.packagesOnly() : due;
        if (ear.topDue == 0 || ear.hearing.last() == own) continue;
        text += "\n    " + name + ": expected " + own.text() + ", heard " +
                (ear.hearing.last() ? ear.hearing.last()->text() : "nothing");
    }
    if (!text.empty()) throw SessionError("what was told last is not what is due:" + text);
}

std::vector<std::string> Listening::takeLines() {
    std::vector<std::string> lines;
    for (auto& [name, ear] : mEars) {
        const std::string line = ear.hearing.takeLine();
        if (!line.empty()) lines.emplace_back(name).append(" hears: ").append(line);
    }
    return lines;
}

std::vector<int> Listening::pidsOf(int type) const {
    std::vector<int> pids;
    for (const auto& [name, ear] : mEars) {
        if (ear.types.contains(type)) pids.push_back(mHeadset.lastPidOf(name));
    }
    std::sort(pids.begin(), pids.end());
    return pids;
}

void Listening::notified(bool focusToo) {
    for (auto& [name, ear] : mEars) {
        if (ear.top) ++ear.topDue;
        if (!focusToo) continue;
        for (const int type : ear.types)
            ++ear.due[type];
    }
    settle();
}

void Listening::request(const std::string& app, const char* op, int type) {
    Json::Value request = operation(op);
    request["type"] = type;
    const Json::Value answer = mHeadset.ask(app, request);
    if (answer["exception"] != 0 || answer["result"] != true) {
        throw SessionError(app + ": " + op + " is refused: " + toLine(answer));
    }
}

void Listening::hear() {
    for (auto& [name, ear] : mEars) {
        Stack& stack = mHeadset.stack();
        ear.hearing.take(name == kHelper
                                 ? stack.service(name).request(operation("heard"), stack.patience())
                                 : mHeadset.ask(name, operation("heard")));
    }
}

std::string Listening::wrong(const Ear& ear, bool tooLittle) {
    if (!ear.hearing.problem().empty()) return "told " + ear.hearing.problem();
    if (isWrong(ear.topDue, ear.hearing.topCalls(), tooLittle)) {
        return count("top activity", ear.topDue, ear.hearing.topCalls());
    }
    for (const auto& [type, what] : {std::pair(0, "head focus"), {1, "input focus"}}) {
        const auto found = ear.due.find(type);
        const int due = found == ear.due.end() ? 0 : found->second;
        if (isWrong(due, ear.hearing.focusCalls(type), tooLittle)) {
            return count(what, due, ear.hearing.focusCalls(type));
        }
    }
    return "";
}

std::string Listening::wrong(bool tooLittle) const {
    std::string text;
    for (const auto& [name, ear] : mEars) {
        const std::string difference = wrong(ear, tooLittle);
        if (difference.empty()) continue;
        text.append("\n    ").append(name).append(": ").append(difference);
    }
    return text;
}

}  // namespace sim
