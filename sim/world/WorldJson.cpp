// SPDX-License-Identifier: Apache-2.0
// The world as a message:
//
//      {"packages":  {"com.a": {"uid": 10050, "permissions": ["P"]}},
//       "processes": [{"pid": 7, "name": "com.a", "uid": 10050, "panelService": false}],
//       "displays":  [{"id": 0, "activities": [7]}],
//       "focusedPid": 7}
#include "world/World.h"

#include <algorithm>

namespace sim {
namespace {

bool readPackage(const Json::Value& value, World::Package* out) {
    const auto uid = intMember(value, "uid");
    if (!uid || !value["permissions"].isArray()) return false;
    out->uid = *uid;
    for (const Json::Value& permission : value["permissions"]) {
        if (!permission.isString()) return false;
        out->permissions.insert(permission.asString());
    }
    return true;
}

bool readProcess(const Json::Value& value, int* pid, World::Process* out) {
    const auto id = intMember(value, "pid");
    const auto name = stringMember(value, "name");
    const auto uid = intMember(value, "uid");
    if (!id || !name || !uid || !value["panelService"].isBool()) return false;
    *pid = *id;
    *out = World::Process{*name, *uid, value["panelService"].asBool()};
    return true;
}

bool readDisplay(const Json::Value& value, int* display, std::vector<int>* activities) {
    const auto id = intMember(value, "id");
    if (!id || !value["activities"].isArray()) return false;
    *display = *id;
    for (const Json::Value& pid : value["activities"]) {
        if (!pid.isInt()) return false;
        activities->push_back(pid.asInt());
    }
    return true;
}

}  // namespace

Json::Value World::toJson() const {
    Json::Value value(Json::objectValue);
    value["packages"] = Json::objectValue;
    for (const auto& [name, package] : mPackages) {
        Json::Value& row = value["packages"][name];
        row["uid"] = package.uid;
        row["permissions"] = Json::arrayValue;
        for (const std::string& permission : package.permissions) {
            row["permissions"].append(permission);
        }
    }
    value["processes"] = Json::arrayValue;
    for (const auto& [pid, process] : mProcesses) {
        Json::Value& row = value["processes"].append(Json::objectValue);
        row["pid"] = pid;
        row["name"] = process.name;
        row["uid"] = process.uid;
        row["panelService"] = process.panelService;
    }
    value["displays"] = Json::arrayValue;
    for (const auto& [display, activities] : mDisplays) {
        Json::Value& row = value["displays"].append(Json::objectValue);
        row["id"] = display;
        row["activities"] = Json::arrayValue;
        for (const int pid : activities)
            row["activities"].append(pid);
    }
    value["focusedPid"] = mFocusedPid;
    return value;
}

std::optional<World> World::fromJson(const Json::Value& value) {
    const auto focused = intMember(value, "focusedPid");
    if (!focused || !value["packages"].isObject() || !value["processes"].isArray() ||
        !value["displays"].isArray()) {
        return {};
    }
    World world;
    world.mFocusedPid = *focused;
    for (const std::string& name : value["packages"].getMemberNames()) {
        if (!readPackage(value["packages"][name], &world.mPackages[name])) return {};
    }
    for (const Json::Value& row : value["processes"]) {
        int pid = 0;
        Process process;
        if (!readProcess(row, &pid, &process)) return {};
        world.mProcesses[pid] = process;
    }
    for (const Json::Value& row : value["displays"]) {
        int display = 0;
        std::vector<int> activities;
        if (!readDisplay(row, &display, &activities)) return {};
        // An activity of a process that is not there would have no package.
        const auto known = [&](int pid) { return world.mProcesses.contains(pid); };
        if (!std::all_of(activities.begin(), activities.end(), known)) return {};
        world.mDisplays[display] = activities;
    }
    return world;
}

}  // namespace sim
