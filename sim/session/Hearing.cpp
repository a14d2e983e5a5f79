// SPDX-License-Identifier: Apache-2.0
// What one listener process, or the focus helper, has heard from the daemon.
#include "session/Hearing.h"

#include <utility>

#include "process/LineChannel.h"
#include "world/Notice.h"

namespace sim {
namespace {

std::string times(int count) {
    return count > 1 ? " x" + std::to_string(count) : "";
}

std::string typeName(int type) {
    if (type == 0) return "head focus";
    return type == 1 ? "input focus" : "focus of type " + std::to_string(type);
}

std::optional<Told> toldToListener(const Json::Value& entry) {
    const Json::Value& app = entry["app"];
    if (!app.isObject() || !app["top"].isBool()) return {};
    const auto top = stringMember(entry, "top");
    const auto package = stringMember(app, "package");
    const auto pid = intMember(app, "pid");
    const auto uid = intMember(app, "uid");
    if (!top || !package || !pid || !uid) return {};
    return Told{*top, *package, *pid, *uid, app["top"].asBool()};
}

}  // namespace

std::string Told::text() const {
    std::string text = "top " + (top.empty() ? "none" : top) + ", immersive ";
    if (immersive.empty() && pid == 0) return text + "none";
    text += immersive;
    return pid == 0 ? text : text + " (pid " + std::to_string(pid) + ")";
}

void Hearing::take(const Json::Value& answer) {
    if (answer["dropped"].asUInt() != 0) complain("more than the log holds");
    for (const Json::Value& entry : answer["heard"])
        takeEntry(entry);
}

int Hearing::focusCalls(int type) const {
    const auto found = mFocusCalls.find(type);
    return found == mFocusCalls.end() ? 0 : found->second;
}

std::string Hearing::takeLine() {
    std::string line;
    const auto append = [&line](const std::string& part) {
        line += (line.empty() ? "" : "; ") + part;
    };
    for (const auto& [type, count] : mNewFocusCalls)
        append(typeName(type) + times(count));
    for (const auto& [text, count] : mNewTold)
        append(text + times(count));
    mNewFocusCalls.clear();
    mNewTold.clear();
    return line;
}

void Hearing::takeEntry(const Json::Value& entry) {
    if (const auto type = intMember(entry, "focus")) {
        ++mFocusCalls[*type];
        ++mNewFocusCalls[*type];
    } else if (entry.isMember("top")) {
        const auto told = toldToListener(entry);
        told ? takeTold(*told) : complain(toLine(entry));
    } else if (const auto top = stringMember(entry, "topActivity"); top && !mHelperTop) {
        mHelperTop = *top;
    } else if (const Json::Value& app = entry["immersiveApp"];
               mHelperTop && (app.isString() || (app.isNull() && entry.isMember("immersiveApp")))) {
        takeTold({*std::exchange(mHelperTop, {}), app.isNull() ? "" : app.asString(), 0, 0, false});
    } else {
        complain(toLine(entry));
    }
}

void Hearing::takeTold(Told told) {
    ++mTopCalls;
    const std::string text = told.text();
    if (!mNewTold.empty() && mNewTold.back().first == text) {
        ++mNewTold.back().second;
    } else {
        mNewTold.emplace_back(text, 1);
    }
    mLast = std::move(told);
}

void Hearing::complain(const std::string& text) {
    if (mProblem.empty()) mProblem = text;
}

}  // namespace sim
