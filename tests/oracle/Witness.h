// SPDX-License-Identifier: Apache-2.0
//
// Somebody who is told all that happens on a headset and hears every answer of the daemon.
//
//      headset ── facts ──▶ Witness ──▶ Oracle
//                             │            │ what is due
//                             └── compares with what the daemon answered ──▶ disagreement
//
// Every call of every app is a fact, so it makes no difference who asks the daemon, or how often.
// One thread.
#pragma once

#include <json/value.h>

#include <functional>
#include <optional>
#include <set>
#include <string>

#include "Oracle.h"
#include "session/Fact.h"

namespace oracle {

/** The first answer of the daemon that is not the one that was due. */
struct Disagreement {
    std::string question;  // the operation of sim_app; "notice": whom it was to reach,
                           // "missed": takeMissed()
    Json::Value request;
    Json::Value due;  // as the operation answers
    Json::Value got;
    Oracle oracle;  // as it was then, for more questions
};

class Witness {
public:
    void take(const sim::Fact& fact);

    /** Whom the daemon has looked for in vain, by its log, while it made the last dump. */
    void takeMissed(const std::set<int>& pids);

    /** Services of which it is not known yet that the daemon has found them; no answer is compared
     *  while there are any, or while no daemon runs. */
    [[nodiscard]] const std::set<std::string>& awaited() const { return mAwaited; }
    /** The daemon has found it. */
    void found(const std::string& service);
    [[nodiscard]] bool compares() const { return mIsDaemonThere && mAwaited.empty(); }

    [[nodiscard]] const std::optional<Disagreement>& disagreement() const { return mDisagreement; }
    [[nodiscard]] size_t compared() const { return mCompared; }

private:
    void systemStarted(const std::string& name);
    void systemEnded(const std::string& name);
    void propertySet(const std::string& name, const std::string& value);
    void faultSet(const std::string& service, const sim::FaultPlan& plan);
    void noticeSent(const sim::NoticeSent& sent);
    void callAnswered(const sim::CallAnswered& call);
    void performed(const std::string& op, const sim::CallAnswered& call);
    void compare(const std::string& question, const Json::Value& request, const Json::Value& due,
                 const Json::Value& got);
    [[nodiscard]] Json::Value answerDue(const std::string& op, const Json::Value& request);

    Oracle mOracle;
    std::set<std::string> mServices;  // those that run
    std::set<std::string> mAwaited;
    bool mIsDaemonThere = false;
    bool mIsDebuggable = false;
    bool mIsPermissive = false;
    size_t mCompared = 0;
    std::optional<Disagreement> mDisagreement;
};

}  // namespace oracle
