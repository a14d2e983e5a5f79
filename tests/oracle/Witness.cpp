// SPDX-License-Identifier: Apache-2.0
// Somebody who is told all that happens on a headset and hears every answer of the daemon.
#include "Witness.h"

#include <map>

#include "scenario/DumpPath.h"
#include "world/ServiceMethods.h"

namespace oracle {
namespace {

constexpr int kIllegalArgument = -3;
constexpr int kNullPointer = -4;
const char* const kDaemon = "vrfocus";

/** Those that the daemon's answers depend on. */
const std::map<std::string, Oracle::Service>& services() {
    static const std::map<std::string, Oracle::Service> kServices{
            {"activity", Oracle::Service::Activity},
            {"display", Oracle::Service::Display},
            {"permission", Oracle::Service::Permission},
            {"VelmarWindowManager", Oracle::Service::Window}};
    return kServices;
}

const std::set<std::string>& questions() {
    static const std::set<std::string> kQuestions{"getClientFocusStatus", "getImmersiveApp",
                                                  "getTopActivity", "getForegroundApps", "dump"};
    return kQuestions;
}

template <typename... Handlers>
struct Overloaded : Handlers... {
    using Handlers::operator()...;
};
template <typename... Handlers>
Overloaded(Handlers...) -> Overloaded<Handlers...>;  // Clang 14 does not find it by itself

Json::Value jsonOf(const std::vector<Verdict>& verdicts) {
    Json::Value rows(Json::arrayValue);
    for (const Verdict& verdict : verdicts) {
        Json::Value& row = rows.append(Json::objectValue);
        row["pid"] = verdict.pid;
        row["hasFocus"] = verdict.hasFocus;
    }
    return rows;
}

Json::Value jsonOf(const std::set<int>& pids) {
    Json::Value array(Json::arrayValue);
    for (const int pid : pids)
        array.append(pid);
    return array;
}

Json::Value jsonOf(const std::optional<ImmersiveApp>& app) {
    if (!app) return {};
    Json::Value row(Json::objectValue);
    row["package"] = app->package;
    row["pid"] = app->pid;
    row["uid"] = app->uid;
    row["top"] = app->isTopActivity;
    return row;
}

/** What was answered to a question; the status in its place when it was refused. */
Json::Value answerGiven(const std::string& op, const Json::Value& answer) {
    const int exception = answer["exception"].asInt();
    if (op == "getImmersiveApp" && exception == kNullPointer) return {};
    if (exception != 0) return "status " + std::to_string(exception);
    if (op == "getClientFocusStatus") return answer["statuses"];
    if (op == "getImmersiveApp") return answer["app"];
    if (op == "getTopActivity") return answer["package"];
    if (op == "getForegroundApps") return answer["names"];
    Json::Value dump;
    const std::string text = answer["dump"].asString();
    return sim::scenario::parseJson(text, &dump) ? dump : Json::Value(text);
}

}  // namespace

void Witness::take(const sim::Fact& fact) {
    const Overloaded take{
            [this](const sim::WorldChanged& it) { mOracle.servicesAnswerFrom(it.world); },
            [this](const sim::ProcessStarted& it) {
                mOracle.processStarted(it.pid, it.uid, it.name);
            },
            [this](const sim::ProcessRenamed& it) { mOracle.processRenamed(it.pid, it.name); },
            [this](const sim::ProcessEnded& it) { mOracle.processEnded(it.pid); },
            [this](const sim::SystemStarted& it) { systemStarted(it.name); },
            [this](const sim::SystemEnded& it) { systemEnded(it.name); },
            [this](const sim::PropertySet& it) { propertySet(it.name, it.value); },
            [this](const sim::FaultSet& it) { faultSet(it.service, it.plan); },
            [this](const sim::NoticeSent& it) { noticeSent(it); },
            [this](const sim::CallAnswered& it) { callAnswered(it); },
    };
    std::visit(take, fact);
}

void Witness::systemStarted(const std::string& name) {
    if (name == kDaemon) {
        mIsDaemonThere = true;
        mOracle.daemonRestarted();
        mAwaited = mServices;
    } else if (services().contains(name)) {
        mServices.insert(name);
        if (mIsDaemonThere) mAwaited.insert(name);
    }
}

void Witness::systemEnded(const std::string& name) {
    if (name == kDaemon) {
        mIsDaemonThere = false;
        mAwaited.clear();
    } else if (const auto service = services().find(name); service != services().end()) {
        mServices.erase(name);
        mAwaited.erase(name);
        mOracle.serviceDisconnected(service->second);
        faultSet(name, {});
    }
}

void Witness::found(const std::string& service) {
    if (mAwaited.erase(service) > 0) mOracle.serviceConnected(services().at(service));
}

void Witness::propertySet(const std::string& name, const std::string& value) {
    if (name == "ro.debuggable") mIsDebuggable = value == "1";
    if (name == "debug.nqs.vrfocus.permissive") mIsPermissive = value == "1";
    mOracle.propertiesAre(mIsDebuggable, mIsPermissive);
}

/** Of faults, those that calls are refused: notices are told of as they come. */
void Witness::faultSet(const std::string& service, const sim::FaultPlan& plan) {
    for (const sim::ServiceMethod& method : sim::methodsOf(service)) {
        const bool isMeant =
                plan.method == method.name || plan.method == sim::FaultPlan::kAllMethods;
        if (isMeant && plan.kind == sim::FaultPlan::Kind::Error)
            mOracle.methodRefuses(method.name, plan.times);
        if (plan.kind == sim::FaultPlan::Kind::None) mOracle.methodAnswers(method.name);
    }
}

/** The daemon hears all that it has asked to hear, and nothing else. */
void Witness::noticeSent(const sim::NoticeSent& sent) {
    const bool isOfDisplays = sent.notice.kind == sim::Notice::Kind::DisplayEvent;
    const bool isWanted = !isOfDisplays || (sent.notice.value == sim::Notice::kDisplayRemoved &&
                                            mOracle.watchesDisplays());
    compare("notice", sent.notice.toJson(), isWanted ? 1 : 0, sent.observers);
    if (sent.observers > 0) mOracle.noticed(sent.notice);
}

void Witness::takeMissed(const std::set<int>& pids) {
    compare("missed", sim::operation("dump"), jsonOf(mOracle.missedInDump()), jsonOf(pids));
}

void Witness::compare(const std::string& question, const Json::Value& request,
                      const Json::Value& due, const Json::Value& got) {
    if (!compares() || mDisagreement) return;
    ++mCompared;
    if (due != got) mDisagreement = Disagreement{question, request, due, got, mOracle};
}

void Witness::callAnswered(const sim::CallAnswered& call) {
    const std::string op = call.request["op"].asString();
    if (!questions().contains(op)) return performed(op, call);
    const Json::Value got = answerGiven(op, call.answer);
    // Who is refused asks nothing: those of the apps that may not are drawn, too.
    if (got.isString() && call.answer["exception"] != 0) return;
    compare(op, call.request, answerDue(op, call.request), got);
}

Json::Value Witness::answerDue(const std::string& op, const Json::Value& request) {
    if (op == "getClientFocusStatus") {
        std::vector<int> pids;
        for (const Json::Value& pid : request["pids"])
            pids.push_back(pid.asInt());
        return jsonOf(mOracle.clientFocusStatus(request["type"].asInt(), pids));
    }
    if (op == "getImmersiveApp") return jsonOf(mOracle.immersiveApp());
    if (op == "getTopActivity") return mOracle.topActivity();
    if (op == "dump") return mOracle.jsonDump();
    Json::Value names(Json::arrayValue);
    for (const std::string& name : mOracle.foregroundApps())
        names.append(name);
    return names;
}

/** A call that changes what the daemon knows, when it was accepted. */
void Witness::performed(const std::string& op, const sim::CallAnswered& call) {
    const int exception = call.answer["exception"].asInt();
    const int type = call.request["type"].asInt();
    // There was no such listener, which makes an empty list of them.
    if (op == "unlistenFocus" && (exception == 0 || exception == kIllegalArgument))
        return mOracle.listenerUnregistered(call.pid, type);
    if (exception != 0) return;
    if (op == "setAppState") mOracle.appStateSet(call.pid, call.request["state"].asInt());
    if (op == "grant") mOracle.trackingGranted(call.request["display"].asInt());
    if (op == "revoke") mOracle.trackingRevoked(call.request["display"].asInt());
    if (op == "listenFocus") mOracle.listenerRegistered(call.pid, type);
}

}  // namespace oracle
