// SPDX-License-Identifier: Apache-2.0
// The simulated headset: what apps ask the daemon, and waiting for the right answers.
#include <set>
#include <string>
#include <utility>

#include "session/Headset.h"
#include "session/SessionError.h"

namespace sim {
namespace {

constexpr int kHeadTracking = 0;
constexpr int kInputTracking = 1;
constexpr int kNullPointer = -4;  // exception of getImmersiveApp when there is none

/** Notes an answer that must not be; the first one counts. */
void complain(const char* op, const Json::Value& answer, Answers* out) {
    if (out->problem.empty()) out->problem = std::string(op) + " answered " + toLine(answer);
}

}  // namespace

Json::Value Headset::ask(const std::string& name, Json::Value request) {
    DrivenProcess& asked = app(name);
    // What an app only looks up in itself needs nobody else.
    static const std::set<std::string> kLocal{"heard", "stop", "rename", "become"};
    const bool isLocal = kLocal.contains(request["op"].asString());
    for (const std::string& needed :
         {name, std::string(Stack::kHub), std::string(Stack::kDaemon)}) {
        if (needed != name && isLocal) continue;
        ChildProcess* process = needed == name ? &asked.process() : mStack.find(needed);
        if (process != nullptr && process->isHung()) {
            throw SessionError(needed + " would not answer: it hangs");
        }
    }
    const int turns = asked.process().isSlow() ? Stack::kTurnsOfSlowProcesses : 1;
    Json::Value answer = asked.request(request, turns * mStack.patience());
    if (!isLocal) tell(CallAnswered{asked.pid(), request, answer});
    return answer;
}

Stack::ToolRun Headset::dump(const std::vector<std::string>& arguments) {
    for (const char* needed : {Stack::kHub, Stack::kServiceManager, Stack::kDaemon}) {
        ChildProcess* process = mStack.find(needed);
        if (process != nullptr && process->isHung()) {
            throw SessionError(std::string(needed) + " would not answer: it hangs");
        }
    }
    std::vector<std::string> words{"dumpsys", "vrfocus"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return mStack.runTool(words);
}

void Headset::addVerdicts(const std::string& reader, int type, bool Verdict::*member,
                          Answers* out) {
    Json::Value request = operation("getClientFocusStatus");
    request["type"] = type;
    request["pids"] = Json::arrayValue;
    for (const std::string& name : mCast)
        request["pids"].append(mPids.at(name));
    const Json::Value answer = ask(reader, request);
    if (answer["exception"] != 0) return complain("getClientFocusStatus", answer, out);
    for (const Json::Value& row : answer["statuses"]) {
        out->focus[nameOf(row["pid"].asInt())].*member = row["hasFocus"].asBool();
    }
}

Answers Headset::answersFor(const std::string& reader) {
    Answers answers;
    addVerdicts(reader, kHeadTracking, &Verdict::head, &answers);
    addVerdicts(reader, kInputTracking, &Verdict::input, &answers);

    const Json::Value immersive = ask(reader, operation("getImmersiveApp"));
    if (immersive["exception"] == 0) {
        const Json::Value& app = immersive["app"];
        answers.immersive = nameOf(app["pid"].asInt());
        if (app["package"] != packageOfProcess(answers.immersive) || !app["top"].asBool()) {
            complain("getImmersiveApp", immersive, &answers);
        }
    } else if (immersive["exception"] != kNullPointer) {
        complain("getImmersiveApp", immersive, &answers);
    }

    const Json::Value top = ask(reader, operation("getTopActivity"));
    answers.top = top["package"].asString();
    if (top["exception"] != 0) complain("getTopActivity", top, &answers);
    return answers;
}

Answers Headset::expect(const std::string& reader, Answers expected) {
    for (auto& [name, verdict] : expected.focus) {
        if (uidOf(name) == 0) verdict = kBoth;
    }
    Answers got;
    const auto asExpected = [&] {
        got = answersFor(reader);
        return got == expected;
    };
    if (mStack.retry(asExpected)) return got;
    std::string text = "the daemon's answers are not those that are due:";
    for (const std::string& line : differences(expected, got))
        text += "\n    " + line;
    throw SessionError(text);
}

void Headset::awaitTrue(const std::string& what, const std::function<bool()>& condition) {
    if (!mStack.retry(condition)) throw SessionError("never came true: " + what);
}

int Headset::displayMask() {
    const Json::Value status =
            mStack.service("display").request(operation("status"), mStack.patience());
    return status["masks"].get(std::to_string(mStack.daemonPid()), 0).asInt();
}

}  // namespace sim
