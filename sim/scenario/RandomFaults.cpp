// SPDX-License-Identifier: Apache-2.0
// Random commands of the scenario language: what goes wrong for a while.
#include <algorithm>

#include "scenario/RandomCommands.h"
#include "session/Stack.h"

namespace sim::scenario {

std::string RandomCommands::killService() {
    static const std::vector<std::string> kServices{kActivity, kActivity,        kPermission,
                                                    kWindow,   "package_native", "vrfocushelper",
                                                    kDisplay};
    const std::string service = oneOf(kServices);
    if (isAway(service.c_str())) return "";
    mAway[service] = below(8);
    mRefusing.erase(service);
    if (service == kDisplay) mIsDisplaySure = false;
    return "kill " + service;
}

std::string RandomCommands::killDaemon() {
    // A new one has to ask about whoever asks the questions between the commands.
    if (isAway(kPermission) || mRefusing.contains(kPermission)) return "";
    // Who hangs meanwhile does not find the new one.
    if (!anApp([](const App& app) { return app.isHung; }).empty()) return "";
    forgetDaemon();
    mAway[kDaemon] = below(4);
    return std::string("kill ") + kDaemon;
}

/** What a daemon knew is gone with it. */
void RandomCommands::forgetDaemon() {
    mListeners.clear();
    mGranted.clear();
    mLapsed.clear();
    mRights.daemonEnds();
}

/** All that stands on it goes and comes back with it, apps that hang among them. */
std::string RandomCommands::restartGround() {
    const std::string ground = mHasHub && oneIn(2) ? "hub" : "servicemanager";
    for (auto& [name, app] : mApps)
        app.isHung = false;
    forgetDaemon();
    mAway.clear();
    mRefusing.clear();
    const bool isKilledFirst = oneIn(2);
    if (isKilledFirst) mNext.push_back("restart " + ground);
    for (const std::string& service : Stack::serviceNames())
        await(service);
    mIsDisplaySure = mCanAwait;
    return (isKilledFirst ? "kill " : "restart ") + ground;
}

/** The return of somebody whose time away is over. */
std::string RandomCommands::comeBack() {
    const auto due =
            std::find_if(mAway.begin(), mAway.end(), [](auto& each) { return each.second-- <= 0; });
    if (due == mAway.end()) return "";
    const std::string process = due->first;
    mAway.erase(due);
    std::string late;
    if (process == kDaemon) {
        for (const std::string& service : Stack::serviceNames())
            await(service);
        // A new one looks for it at its start.
        mIsDisplaySure = !isAway(kDisplay);
    } else if (!isAway(kDaemon)) {
        await(process);
        if (process == kDisplay) mIsDisplaySure = mCanAwait;
        if (mCanAwait && oneIn(4)) late = " late=" + std::to_string(50 * (1 + below(6)));
    }
    return "restart " + process + late;
}

/** The daemon is to find a service before anything else happens. */
void RandomCommands::await(const std::string& service) {
    if (mCanAwait && !isAway(service.c_str())) mNext.push_back("wait until connected " + service);
}

/** A method whose calls the daemon makes one for one with what happens is refused some times. */
std::string RandomCommands::refuseCalls() {
    struct Refusal {
        const char* service;
        const char* method;
        bool isCounted = false;
    };
    static const std::vector<Refusal> kRefusals{
            {kActivity, "hasForegroundPanelService", /*isCounted=*/true},
            {kActivity, "getDisplaysWithTopActivities", /*isCounted=*/true},
            {kActivity, "hasActivityOnPrimaryDisplay"},
            {kActivity, "getTopActivityOnPrimaryDisplay"},
            {kDisplay, "registerCallbackWithEventMask", /*isCounted=*/true},
            {kPermission, "getPackagesForUid"},
            {kPermission, "checkPermission"},
            {"package_native", "all"},
            {"vrfocushelper", "all"},
    };
    static const std::vector<std::string> kStatuses{"security", "illegal-argument", "null-pointer"};
    const Refusal refusal = oneOf(kRefusals);
    if (isAway(refusal.service)) return "";
    const std::string text = std::string("fault ") + refusal.service + " error " + refusal.method +
                             " " + oneOf(kStatuses);
    mRefusing[refusal.service] = 4 + below(16);
    return refusal.isCounted && oneIn(2) ? text + " times=" + std::to_string(1 + below(4)) : text;
}

/** A service whose faults are over. */
std::string RandomCommands::answerAgain() {
    const auto due = std::find_if(mRefusing.begin(), mRefusing.end(),
                                  [](auto& each) { return each.second-- <= 0; });
    if (due == mRefusing.end()) return "";
    const std::string service = due->first;
    mRefusing.erase(due);
    return "fault " + service + " none";
}

std::string RandomCommands::replayNotices() {
    static const std::vector<std::string> kReplays{"drop", "double", "reorder"};
    static const std::vector<std::string> kServices{kActivity, kActivity, kWindow, kDisplay};
    const std::string service = oneOf(kServices);
    if (isAway(service.c_str())) return "";
    const std::string replay = service == kDisplay ? "drop" : oneOf(kReplays);
    const int count = (replay == "reorder" ? 2 : 1) + below(3);
    return "fault " + service + " notices " + replay + " count=" + std::to_string(count);
}

}  // namespace sim::scenario
