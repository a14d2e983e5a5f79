// SPDX-License-Identifier: Apache-2.0
// Random commands of the scenario language: what people, the platform and its services do.
#include "scenario/RandomCommands.h"

namespace sim::scenario {
namespace {

std::string onDisplay(int display) {
    return display == 0 ? "" : " display=" + std::to_string(display);
}

}  // namespace

std::string RandomCommands::install() {
    const std::string package = oneOf(randomPackages());
    const std::string name = anApp([](const App& app) { return !app.isNative; });
    if (name.empty() || mRights.isInstalled(package)) return "";
    const int uid = mApps.at(name).uid;
    const std::string drawn = permissions("?");
    mRights.install(package, uid, wordsIn(drawn));
    const std::string text = "install " + package + " uid=" + std::to_string(uid);
    return drawn.empty() ? text : text + " permissions=" + drawn;
}

std::string RandomCommands::allow() {
    static const std::vector<std::string> kPermissions{kReadFocus, kGrantTracking, "dump",
                                                       "background-head", "background-input"};
    const std::vector<std::string> packages = mRights.packages();
    if (packages.empty()) return "";
    const std::string package = oneOf(packages);
    const std::string permission = oneOf(kPermissions);
    if (oneIn(3)) {
        mRights.deny(package, permission);
        return "deny " + package + " " + permission;
    }
    mRights.allow(package, permission);
    return "allow " + package + " " + permission;
}

std::string RandomCommands::front() {
    const std::string name = anApp([](const App& app) { return !app.isNative; });
    if (name.empty()) return "";
    const int display = aDisplayToShowOn();
    mActivities.at(display).insert(name);
    return "front " + name + onDisplay(display);
}

std::string RandomCommands::back() {
    auto& [display, names] =
            *std::next(mActivities.begin(), below(static_cast<int>(mActivities.size())));
    if (names.empty()) return "";
    const std::string name = oneOf(names);
    names.erase(name);
    return "back " + name + onDisplay(display);
}

std::string RandomCommands::window() {
    if (const std::string overlay = anOverlay(); !overlay.empty() && oneIn(3))
        return "window " + overlay;
    const std::string name = anApp([](const App& app) { return !app.isNative; });
    return name.empty() || oneIn(8) ? "window none" : "window " + name;
}

std::string RandomCommands::panel() {
    std::string name = anApp([](const App& app) { return !app.isNative; });
    if (name.empty()) return "";
    if (mPanels.size() > 1) name = oneOf(mPanels);
    const bool isOn = !mPanels.contains(name);
    if (isOn) {
        mPanels.insert(name);
    } else {
        mPanels.erase(name);
    }
    return "panel " + name + (isOn ? " on" : " off");
}

std::string RandomCommands::display() {
    int display = 1 + below(kHighestDisplay);
    if (!mLapsed.empty() && oneIn(2)) display = oneOf(mLapsed);
    const bool isThere = mActivities.contains(display);
    if (isThere && oneIn(2)) return "";  // so that they stay a while
    if (isThere) {
        mActivities.erase(display);
        lapse(display);
    } else {
        mActivities.try_emplace(display);
    }
    return std::string("display ") + (isThere ? "remove " : "add ") + std::to_string(display);
}

void RandomCommands::lapse(int display) {
    if (mGranted.erase(display) > 0) mLapsed.insert(display);
}

std::string RandomCommands::property() {
    // On for a while only: nothing else shows then.
    mIsPermissive = !mIsPermissive && oneIn(3);
    return std::string("property debug.nqs.vrfocus.permissive ") + (mIsPermissive ? "1" : "0");
}

std::string RandomCommands::quietly() {
    static const std::vector<std::string (RandomCommands::*)()> kChanges{
            &RandomCommands::front, &RandomCommands::front,   &RandomCommands::back,
            &RandomCommands::panel, &RandomCommands::display, &RandomCommands::window,
            &RandomCommands::stop};
    const std::string text = (this->*oneOf(kChanges))();
    return text.empty() ? "" : "quietly " + text;
}

// Notices alone.

std::string RandomCommands::noticeOfActivities() {
    if (mApps.empty() || isAway(kActivity)) return "";
    // Of whoever is in front it makes a difference under which uid the notice has it.
    const std::set<std::string>& inFront = mActivities.at(0);
    const bool isOfFront = !inFront.empty() && oneIn(2);
    const std::string name = isOfFront ? oneOf(inFront) : oneOf(mApps).first;
    if (!mApps.at(name).runs && !oneIn(4)) return "";
    switch (below(6)) {
        case 0:
            return "notice services " + name;
        case 1:
            return "notice died " + name;
        default:
            break;
    }
    if (isOfFront && oneIn(4)) {
        // Known under a wrong uid alone, and no window besides.
        mNext.push_back("notice activities " + name +
                        " on uid=" + std::to_string(oneOf(mApps).second.uid));
        if (!isAway(kWindow)) mNext.emplace_back("notice window none");
        return "notice activities " + name + " off";
    }
    const std::string text = "notice activities " + name + (oneIn(2) ? " off" : " on");
    const bool isAstray = oneIn(isOfFront ? 2 : 6);
    return isAstray ? text + " uid=" + std::to_string(oneOf(mApps).second.uid) : text;
}

std::string RandomCommands::noticeOfDisplay() {
    static const std::vector<std::string> kChanges{"removed", "removed", "added", "changed"};
    if (isAway(kDisplay)) return "";
    int display = below(kHighestDisplay + 1);
    if (!mGranted.empty() && !oneIn(3)) display = oneOf(mGranted);
    const std::string change = oneOf(kChanges);
    if (change == "removed") lapse(display);
    return "notice display " + std::to_string(display) + " " + change;
}

std::string RandomCommands::noticeOfWindow() {
    if (mApps.empty() || isAway(kWindow)) return "";
    const auto [name, app] = oneOf(mApps);
    if (oneIn(8)) return "notice window none";
    if (!app.runs && !oneIn(4)) return "";
    const std::string text = "notice window " + name;
    return oneIn(6) ? text + " uid=" + std::to_string(oneOf(mApps).second.uid) : text;
}

std::string RandomCommands::say() {
    const bool isWindow = oneIn(3);
    if (isAway(isWindow ? kWindow : kActivity)) return "";
    return isWindow ? "say window" : "say activities";
}

}  // namespace sim::scenario
