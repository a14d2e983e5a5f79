// SPDX-License-Identifier: Apache-2.0
//
// A fact: something that has happened on the headset, for programs that work out what must follow.
//
// Facts come in the order in which the daemon can have noticed them, each after it has happened,
// and only of what really did: a notice that reached nobody says so, a call has its answer. Events,
// in comparison, are for people. What a fact refers to is there while it is told.
#pragma once

#include <json/value.h>

#include <string>
#include <variant>

#include "world/FaultPlan.h"
#include "world/Notice.h"
#include "world/World.h"

namespace sim {

/** What services answer from now on; of those that hang, once they run on. */
struct WorldChanged {
    const World& world;
};
struct ProcessStarted {
    int pid = 0;
    int uid = 0;
    std::string name;  // of its command line
};
struct ProcessRenamed {
    int pid = 0;
    std::string name;
};
struct ProcessEnded {
    int pid = 0;
};
/** A service or the daemon, by the name that Stack has for it. */
struct SystemStarted {
    std::string name;
};
struct SystemEnded {
    std::string name;
};
struct PropertySet {
    std::string name;
    std::string value;
};
/** A service has a fault from now on, or none; its end is the end of its faults, too. */
struct FaultSet {
    std::string service;
    FaultPlan plan;
};
/** A notice has left its service, to so many observers. */
struct NoticeSent {
    Notice notice;
    int observers = 0;
};
/** An app's call to the daemon is over. */
struct CallAnswered {
    int pid = 0;  // of the app
    const Json::Value& request;
    const Json::Value& answer;  // as in AppControl.h
};

using Fact = std::variant<WorldChanged, ProcessStarted, ProcessRenamed, ProcessEnded, SystemStarted,
                          SystemEnded, PropertySet, FaultSet, NoticeSent, CallAnswered>;

}  // namespace sim
