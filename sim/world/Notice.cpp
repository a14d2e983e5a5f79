// SPDX-License-Identifier: Apache-2.0
// A notice of a platform service, as a message.
#include "world/Notice.h"

#include <algorithm>
#include <array>

namespace sim {
namespace {

struct KindRow {
    Notice::Kind kind;
    const char* name;
    const char* sender;
};
constexpr std::array kKinds{
        KindRow{Notice::Kind::ForegroundActivities, "foregroundActivitiesChanged", "activity"},
        KindRow{Notice::Kind::ForegroundServices, "foregroundServicesChanged", "activity"},
        KindRow{Notice::Kind::ProcessDied, "processDied", "activity"},
        KindRow{Notice::Kind::DisplayEvent, "displayEvent", "display"},
        KindRow{Notice::Kind::FocusedWindow, "focusedWindowChanged", "VelmarWindowManager"},
};

const KindRow& rowOf(Notice::Kind kind) {
    return *std::find_if(kKinds.begin(), kKinds.end(),
                         [&](const KindRow& row) { return row.kind == kind; });
}

}  // namespace

std::optional<int> intMember(const Json::Value& object, const char* key) {
    if (!object.isObject() || !object[key].isInt()) return {};
    return object[key].asInt();
}

std::optional<std::string> stringMember(const Json::Value& object, const char* key) {
    if (!object.isObject() || !object[key].isString()) return {};
    return object[key].asString();
}

std::string Notice::sender() const {
    return rowOf(kind).sender;
}

bool Notice::isSender(const std::string& service) {
    return std::any_of(kKinds.begin(), kKinds.end(),
                       [&](const KindRow& row) { return service == row.sender; });
}

Json::Value Notice::toJson() const {
    Json::Value value(Json::objectValue);
    value["notice"] = rowOf(kind).name;
    value["pid"] = pid;
    value["uid"] = uid;
    value["display"] = display;
    value["value"] = this->value;
    return value;
}

std::optional<Notice> Notice::fromJson(const Json::Value& value) {
    const auto name = stringMember(value, "notice");
    const auto pid = intMember(value, "pid");
    const auto uid = intMember(value, "uid");
    const auto display = intMember(value, "display");
    const auto content = intMember(value, "value");
    if (!name || !pid || !uid || !display || !content) return {};
    const auto row = std::find_if(kKinds.begin(), kKinds.end(),
                                  [&](const KindRow& kind) { return kind.name == *name; });
    if (row == kKinds.end()) return {};
    return Notice{row->kind, *pid, *uid, *display, *content};
}

}  // namespace sim
