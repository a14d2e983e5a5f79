// SPDX-License-Identifier: Apache-2.0
// Commands: faults of processes and of services.
#include "scenario/Form.h"
#include "scenario/Player.h"
#include "scenario/Vocabulary.h"
#include "world/FaultPlan.h"
#include "world/Notice.h"

namespace sim::scenario {
namespace {

constexpr int kDeadObject = -32;  // the transport's error that "dead" stands for

/** A target as the headset knows it: apps by their own names. */
std::string targetIn(const Arguments& arguments) {
    const std::string word = arguments.text("TARGET");
    return systemProcessOf(word).value_or(word);
}

std::string serviceIn(const Arguments& arguments) {
    return *systemProcessOf(arguments.text("SERVICE"));
}

template <void (Headset::*kAction)(const std::string&)>
void onTarget(Player& player, const Arguments& arguments) {
    (player.headset().*kAction)(targetIn(arguments));
}

void slow(Player& player, const Arguments& arguments) {
    player.headset().slow(targetIn(arguments),
                          std::chrono::milliseconds(arguments.number("MILLISECONDS")));
}

FaultPlan planIn(const Arguments& arguments, FaultPlan::Kind kind) {
    FaultPlan plan;
    plan.kind = kind;
    if (arguments.has("METHOD")) plan.method = arguments.text("METHOD");
    plan.times = arguments.number("times", arguments.number("count"));
    plan.seed = static_cast<uint32_t>(arguments.number("SEED"));
    plan.descriptor = arguments.has("WORD") ? arguments.text("WORD") : "com.velmar.wrong";
    if (arguments.has("ERROR")) {
        const int status = numberOf(statusNames(), arguments.text("ERROR"));
        const bool isDead = arguments.text("ERROR") == "dead";
        plan.exception = isDead ? 0 : status;
        plan.transport = isDead ? kDeadObject : 0;
    }
    return plan;
}

FaultPlan::Kind replayIn(const Arguments& arguments) {
    const std::string word = arguments.text("REPLAY");
    if (word == "drop") return FaultPlan::Kind::DropNotices;
    return word == "double" ? FaultPlan::Kind::DoubleNotices : FaultPlan::Kind::ReorderNotices;
}

template <FaultPlan::Kind kKind>
FaultPlan plan(const Arguments& arguments) {
    return planIn(arguments, kKind);
}

FaultPlan replayPlan(const Arguments& arguments) {
    return planIn(arguments, replayIn(arguments));
}

/** A row for a fault: what cannot be is found before anything runs. */
template <FaultPlan (*kPlan)(const Arguments&)>
Form fault(const char* pattern, const char* help, const char* example) {
    Form form = action(pattern, help, example, [](Player& player, const Arguments& arguments) {
        player.headset().setFault(serviceIn(arguments), kPlan(arguments));
    });
    form.problem = [](const Arguments& arguments) -> Form::Problem {
        const std::string service = serviceIn(arguments);
        const char* const place = arguments.has("METHOD")     ? "METHOD"
                                  : Notice::isSender(service) ? "REPLAY"
                                                              : "SERVICE";
        return {kPlan(arguments).problemWith(service), place};
    };
    return form;
}

}  // namespace

std::vector<Form> faultForms() {
    using Kind = FaultPlan::Kind;
    using enum Form::Names;
    return {
            quietAction("kill TARGET",
                        "kill a process (SIGKILL); the hub and servicemanager take all down with "
                        "them",
                        "kill activity", onTarget<&Headset::kill>, End),
            quietAction("stop TARGET", "it ends by itself", "stop game", onTarget<&Headset::stop>,
                        End),
            action("hang TARGET", "it stands still, and answers nobody", "hang display",
                   onTarget<&Headset::hang>),
            action("resume TARGET", "it goes on", "resume display", onTarget<&Headset::resume>),
            action("slow TARGET off", "it goes on at full speed", "slow daemon off",
                   onTarget<&Headset::resume>),
            action("slow TARGET MILLISECONDS",
                   "it stands still that long, again and again, a millisecond apart",
                   "slow daemon 5", slow),
            action("restart SYSTEM [late=MILLISECONDS]",
                   "start a system process anew; the hub and servicemanager bring all back; late: "
                   "a service publishes itself that long after",
                   "restart activity late=300",
                   [](Player& player, const Arguments& arguments) {
                       player.headset().restart(
                               *systemProcessOf(arguments.text("SYSTEM")),
                               std::chrono::milliseconds(arguments.number("late")));
                   }),
            fault<plan<Kind::None>>("fault SERVICE none", "its faults are over",
                                    "fault activity none"),
            fault<plan<Kind::Error>>("fault SERVICE error METHOD ERROR [times=COUNT]",
                                     "calls of a method (or all) are answered by an error",
                                     "fault activity error hasForegroundPanelService null-pointer"),
            fault<plan<Kind::Truncated>>("fault SERVICE truncated METHOD [times=COUNT]",
                                         "they are answered by half of a reply",
                                         "fault activity truncated all times=3"),
            fault<plan<Kind::Random>>("fault SERVICE random METHOD SEED [times=COUNT]",
                                      "they are answered by random bytes",
                                      "fault permission random all 7"),
            fault<plan<Kind::Dies>>("fault SERVICE dies METHOD",
                                    "it ends inside the next such call, or inside a registration",
                                    "fault activity dies registration"),
            fault<plan<Kind::Descriptor>>("fault SERVICE descriptor [WORD]",
                                          "it is started anew with a wrong interface descriptor",
                                          "fault activity descriptor com.velmar.wrong"),
            fault<replayPlan>("fault SERVICE notices REPLAY [count=COUNT]",
                              "its next notices are lost, sent twice, or held and sent in reverse",
                              "fault windowmanager notices reorder count=2"),
    };
}

}  // namespace sim::scenario
