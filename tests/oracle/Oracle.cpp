// SPDX-License-Identifier: Apache-2.0
// The focus rules, said a second time.
#include "Oracle.h"

#include <algorithm>
#include <utility>

namespace oracle {
namespace {

const char* const kShell = "com.velmar.shellenv";

const std::set<std::string>& systemOverlays() {  // by process name
    static const std::set<std::string> kNames{"system_server", "com.velmar.vralertservice",
                                              "com.velmar.os.vrlockscreen", "com.android.settings"};
    return kNames;
}

const std::set<std::string>& packagesTrackingInBackground() {
    static const std::set<std::string> kPackages{"com.velmar.vrshell", kShell,
                                                 "com.velmar.boundary", "com.velmar.systemdriver",
                                                 "com.velmar.mrservice"};
    return kPackages;
}

/** Native processes, each under the one uid at which it is believed. */
const std::set<std::pair<std::string, int>>& nativesTrackingInBackground() {
    static const std::set<std::pair<std::string, int>> kNatives{
            {"/system/bin/audioserver", 1041},
            {"/system/bin/mrsystemservice", 1000},
            {"/system_ext/bin/avatardataserviced", 1000}};
    return kNatives;
}

const char* backgroundPermission(int type) {
    return type == kHeadTracking ? "com.velmar.permission.ACCESS_BACKGROUND_HEAD_TRACKING"
                                 : "com.velmar.permission.ACCESS_BACKGROUND_INPUT_TRACKING";
}

/** The package that a process stands for, among those of its uid. */
std::string packageOf(const std::string& process, const std::vector<std::string>& packages) {
    if (process == "system_server") return "android.uid.system:1000";
    if (packages.size() == 1) return packages.front();
    // Of a shared uid the name tells which it is, and is kept whole.
    const std::string base = process.substr(0, process.find(':'));
    return std::count(packages.begin(), packages.end(), base) > 0 ? process : "";
}

template <typename T>
void setMember(std::set<T>& set, const T& value, bool member) {
    if (member) {
        set.insert(value);
    } else {
        set.erase(value);
    }
}

}  // namespace

// What happens.

void Oracle::processEnded(int pid) {
    mProcesses.erase(pid);
    for (auto& [type, pids] : mDaemon.listeners)
        pids.erase(pid);
}

void Oracle::serviceDisconnected(Service service) {
    mConnected.erase(service);
    if (service == Service::Window) mDaemon.window = {};
    if (service == Service::Display) mDaemon.watchesDisplays = false;  // never asked for again
    if (service != Service::Activity) return;
    mDaemon.foreground.clear();
    mDaemon.panels.clear();
    mDaemon.onTop.clear();
}

/** A call is made: what comes of it when it is not answered is what there was before, nothing. */
bool Oracle::isAnswered(Service service, const std::string& method) {
    if (!isConnected(service)) return false;
    const auto refusal = mRefusals.find(method);
    if (refusal == mRefusals.end()) return true;
    if (refusal->second == 1) {
        mRefusals.erase(refusal);
    } else if (refusal->second > 1) {
        --refusal->second;
    }
    return false;
}

void Oracle::noticed(const sim::Notice& notice) {
    const Client client{notice.uid, notice.pid};
    switch (notice.kind) {
        case sim::Notice::Kind::ForegroundActivities:
            activitiesChanged(client, /*foreground=*/notice.value != 0);
            break;
        case sim::Notice::Kind::ForegroundServices:
            servicesChanged(client);
            break;
        case sim::Notice::Kind::ProcessDied:
            break;  // the dead are noticed when they are asked about
        case sim::Notice::Kind::DisplayEvent:
            if (notice.value == sim::Notice::kDisplayRemoved && notice.display != 0)
                trackingRevoked(notice.display);
            break;
        case sim::Notice::Kind::FocusedWindow:
            mDaemon.window = client;
            notifyEverybody();
            break;
    }
}

void Oracle::activitiesChanged(const Client& client, bool foreground) {
    std::vector<int> displays;
    if (isAnswered(Service::Activity, "getDisplaysWithTopActivities")) {
        displays.push_back(sim::World::kPrimaryDisplay);
        displays.insert(displays.end(), mDaemon.granted.begin(), mDaemon.granted.end());
        displays = mWorld.displaysWithTopActivities(client.pid, displays);
    }
    const bool onPrimary =
            hasPrimaryActivity(client) ||
            std::count(displays.begin(), displays.end(), sim::World::kPrimaryDisplay) > 0;
    const bool onSome = onPrimary || !displays.empty();
    // Told twice of the same, it counts twice.
    if (foreground && onPrimary) {
        mDaemon.foreground.push_back(client);
    } else {
        std::erase(mDaemon.foreground, client);
    }
    setMember(mDaemon.onTop, client, foreground && onSome);
    setMember(mDaemon.onTopAnywhere, client, foreground);
    notifyEverybody();
}

void Oracle::servicesChanged(const Client& client) {
    if (!isConnected(Service::Activity)) return;
    setMember(mDaemon.panels, client,
              isAnswered(Service::Activity, "hasForegroundPanelService") &&
                      mWorld.hasForegroundPanelService(client.pid, client.uid));
    notifyEverybody();
}

void Oracle::appStateSet(int pid, int state) {
    if (state != kVisible && state != kStopping) return;
    const Client client{mProcesses.at(pid).uid, pid};
    setMember(mDaemon.rendering, client, state == kVisible);
    if (state == kStopping) keepSomebodyInForeground();
    notifyEverybody();
}

bool Oracle::hasPrimaryActivity(const Client& client) {
    return isAnswered(Service::Activity, "hasActivityOnPrimaryDisplay") &&
           mWorld.hasActivityOnPrimaryDisplay(client.pid, client.uid);
}

/** Whoever is first, by uid, among those with an activity on the primary display. */
void Oracle::keepSomebodyInForeground() {
    if (!isConnected(Service::Activity)) return;
    for (const Client& client : mDaemon.onTopAnywhere) {
        if (!hasPrimaryActivity(client)) continue;
        std::vector<Client>& foreground = mDaemon.foreground;
        if (std::count(foreground.begin(), foreground.end(), client) == 0)
            foreground.push_back(client);
        return;
    }
}

void Oracle::trackingGranted(int display) {
    if (display == sim::World::kPrimaryDisplay) {
        mDaemon.mainDisplayFocus = true;
        return;
    }
    const bool isFirst = mDaemon.granted.insert(display).second && mDaemon.granted.size() == 1;
    if (isFirst && isAnswered(Service::Display, "registerCallbackWithEventMask"))
        mDaemon.watchesDisplays = true;
}

void Oracle::trackingRevoked(int display) {
    if (display == sim::World::kPrimaryDisplay) {
        mDaemon.mainDisplayFocus = false;
        return;
    }
    const bool isLast = mDaemon.granted.erase(display) > 0 && mDaemon.granted.empty();
    if (isLast && isAnswered(Service::Display, "registerCallbackWithEventMask"))
        mDaemon.watchesDisplays = false;
}

/** Listeners and the helper are told who is on top and who is immersive, also if there are none. */
void Oracle::notifyEverybody() {
    (void)topActivity();
    (void)immersiveApp();
}

// Who they are.

/** Those alive; the others are forgotten. */
template <typename Clients>
const Clients& Oracle::living(Clients& clients) const {
    std::erase_if(clients, [this](const Client& client) { return !isAlive(client.pid); });
    return clients;
}

/** The record of a living process, made now if it is new, with the name that it has now. */
std::optional<Oracle::Record> Oracle::meet(int pid) {
    const auto process = mProcesses.find(pid);
    if (process == mProcesses.end()) return {};
    const auto known = mDaemon.records.find(pid);
    if (known == mDaemon.records.end() || known->second.client.uid != process->second.uid)
        mDaemon.records[pid] = recordOf(pid, process->second);
    Record record = mDaemon.records.at(pid);
    record.process = process->second.name;
    return record;
}

Oracle::Record Oracle::recordOf(int pid, const Process& process) {
    Record record{{process.uid, pid}, process.name, "", {}, {}};
    const bool isTold = isAnswered(Service::Permission, "getPackagesForUid");
    record.package = packageOf(
            process.name, isTold ? mWorld.packagesOf(process.uid) : std::vector<std::string>());
    const bool isListed = packagesTrackingInBackground().contains(record.package) ||
                          nativesTrackingInBackground().contains({process.name, process.uid});
    for (const int type : {kHeadTracking, kInputTracking}) {
        const bool isGranted =
                process.uid == 0 || (isAnswered(Service::Permission, "checkPermission") &&
                                     mWorld.hasPermission(backgroundPermission(type), process.uid));
        if (isListed || isGranted) record.mayInBackground.insert(type);
    }
    return record;
}

/** In order; the records of the dead are dropped. */
std::set<Oracle::Client> Oracle::everybodyMet() {
    std::erase_if(mDaemon.records, [this](const auto& entry) { return !isAlive(entry.first); });
    std::set<Client> clients;
    for (const auto& [pid, record] : mDaemon.records)
        clients.insert(record.client);
    return clients;
}

// What they may.

std::vector<Verdict> Oracle::clientFocusStatus(int type, const std::vector<int>& pids) {
    std::map<Client, Record> asked;
    for (const int pid : pids) {
        if (const std::optional<Record> record = meet(pid)) asked[record->client] = *record;
    }
    living(mDaemon.foreground);
    living(mDaemon.panels);
    if (type == kInputTracking) (void)immersiveApp();
    if (type == kHeadTracking && !mDaemon.foreground.empty())
        (void)meet(mDaemon.foreground.back().pid);

    std::vector<Verdict> verdicts;
    for (const auto& [client, record] : asked) {
        const bool hasFocus =
                record.mayInBackground.contains(type) || isInFront(type, record) || mPermissive;
        setMember(mDaemon.records.at(client.pid).holds, type, hasFocus);
        verdicts.push_back({client.pid, hasFocus});
    }
    return verdicts;
}

bool Oracle::isInFront(int type, const Record& record) const {
    const Client& client = record.client;
    const std::vector<Client>& foreground = mDaemon.foreground;
    // With the immersive app it is the main display that decides on input, nothing else.
    if (type == kInputTracking && mDaemon.immersive && mDaemon.immersive->pid == client.pid)
        return mDaemon.mainDisplayFocus;
    if (mDaemon.panels.contains(client) || mDaemon.onTop.contains(client)) return true;
    if (std::count(foreground.begin(), foreground.end(), client) > 0) return true;
    if (type != kHeadTracking) return false;
    // The newest in the foreground counts whatever uid the notice gave it.
    return mDaemon.window == client || mDaemon.onTopAnywhere.contains(client) ||
           (!foreground.empty() && foreground.back().pid == client.pid);
}

std::string Oracle::topActivity() {
    const std::vector<Client>& foreground = living(mDaemon.foreground);
    if (!foreground.empty()) return meet(foreground.back().pid)->package;
    return isAnswered(Service::Activity, "getTopActivityOnPrimaryDisplay")
                   ? mWorld.topPackageOnPrimaryDisplay()
                   : "";
}

std::optional<ImmersiveApp> Oracle::immersiveApp() {
    mDaemon.immersive = chooseImmersiveApp();
    return mDaemon.immersive;
}

std::optional<ImmersiveApp> Oracle::chooseImmersiveApp() {
    const std::string top = topActivity();
    const auto chosen = [this](int pid) {
        const Record& record = mDaemon.records.at(pid);
        return ImmersiveApp{record.package, pid, record.client.uid};
    };
    const auto isTop = [&](int pid) { return mProcesses.at(pid).name == top; };

    const std::set<Client>& rendering = living(mDaemon.rendering);
    for (const Client& client : rendering) {
        const bool isOverlay = systemOverlays().contains(meet(client.pid)->process);
        if (isOverlay && mDaemon.window.pid == client.pid) return chosen(client.pid);
    }
    for (const Client& client : everybodyMet()) {
        if (mDaemon.records.at(client.pid).package != kShell) continue;
        if (top == kShell || isTop(client.pid)) return chosen(client.pid);
        break;  // there is one shell
    }
    for (const Client& client : rendering) {
        if (isTop(client.pid)) return chosen(client.pid);
    }
    return {};
}

// What they see.

std::vector<std::string> Oracle::foregroundApps() {
    std::vector<std::string> names;
    for (const Client& client : living(mDaemon.rendering))
        names.push_back(mProcesses.at(client.pid).name);
    return names;
}

std::set<int> Oracle::missedInDump() const {
    if (isAlive(mDaemon.window.pid)) return {};
    return {mDaemon.window.pid};
}

template <typename Clients>
Json::Value Oracle::pidsOf(const Clients& clients) {
    Json::Value pids(Json::arrayValue);
    for (const Client& client : clients) {
        if (meet(client.pid)) pids.append(client.pid);
    }
    return pids;
}

Json::Value Oracle::jsonDump() {
    const auto numbers = [](const std::set<int>& set) {
        Json::Value array(Json::arrayValue);
        for (const int number : set)
            array.append(number);
        return array;
    };
    Json::Value policy(Json::objectValue);
    policy["windowFocus"] = meet(mDaemon.window.pid) ? mDaemon.window.pid : -1;
    policy["topActivityPackage"] = topActivity();
    policy["immersiveApp"] = mDaemon.immersive ? mDaemon.immersive->package : "";  // as last chosen
    policy["foregroundActivities"] = pidsOf(living(mDaemon.foreground));
    policy["foregroundPanelApps"] = pidsOf(living(mDaemon.panels));
    policy["renderingClients"] = pidsOf(living(mDaemon.rendering));
    policy["allClients"] = Json::arrayValue;
    for (const Client& client : everybodyMet()) {
        const Record& record = mDaemon.records.at(client.pid);
        Json::Value row(Json::objectValue);
        row["uid"] = client.uid;
        row["pid"] = client.pid;
        row["process"] = record.process;
        row["package"] = record.package;
        row["backgroundAccess"] = numbers(record.mayInBackground);
        row["currentFocus"] = numbers(record.holds);
        policy["allClients"].append(row);
    }
    Json::Value dump(Json::objectValue);
    for (const auto& [type, pids] : mDaemon.listeners) {
        Json::Value row(Json::objectValue);
        row["type"] = type;
        row["size"] = static_cast<int>(pids.size());
        row["listeners"] = numbers(pids);
        dump["types"].append(row);
    }
    dump["focusPolicy"] = policy;
    return dump;
}

}  // namespace oracle
