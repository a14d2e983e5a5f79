// SPDX-License-Identifier: Apache-2.0
// The world of a headset: changes and questions.
#include "world/World.h"

#include <algorithm>
#include <utility>

namespace sim {
namespace {

bool contains(const std::vector<int>& pids, int pid) {
    return std::find(pids.begin(), pids.end(), pid) != pids.end();
}

}  // namespace

std::string packageOfProcess(const std::string& processName) {
    return processName.substr(0, processName.find(':'));
}

void World::installPackage(const std::string& name, Package package) {
    mPackages[name] = std::move(package);
}

bool World::setPermission(const std::string& package, const std::string& permission, bool granted) {
    const auto found = mPackages.find(package);
    if (found == mPackages.end()) return false;
    if (granted) found->second.permissions.insert(permission);
    if (!granted) found->second.permissions.erase(permission);
    return true;
}

void World::addProcess(int pid, const std::string& name, int uid) {
    mProcesses[pid] = Process{name, uid, /*panelService=*/false};
}

std::vector<Notice> World::removeProcess(int pid) {
    const auto process = mProcesses.find(pid);
    if (process == mProcesses.end()) return {};
    const Foreground before = foreground();
    std::vector<Notice> notices{{Notice::Kind::ProcessDied, pid, process->second.uid, 0, 0}};
    for (auto& [display, activities] : mDisplays)
        std::erase(activities, pid);
    mProcesses.erase(process);
    for (const Notice& notice : changesSince(before))
        notices.push_back(notice);
    if (mFocusedPid == pid) {
        const std::vector<int>& primary = mDisplays.at(kPrimaryDisplay);
        mFocusedPid = primary.empty() ? 0 : primary.back();
        notices.push_back(focusNotice());
    }
    return notices;
}

void World::replaceProcess(int oldPid, int newPid) {
    auto process = mProcesses.extract(oldPid);
    if (process.empty()) return;
    process.key() = newPid;
    mProcesses.erase(newPid);
    mProcesses.insert(std::move(process));
    for (auto& [display, activities] : mDisplays)
        std::replace(activities.begin(), activities.end(), oldPid, newPid);
    if (mFocusedPid == oldPid) mFocusedPid = newPid;
}

std::vector<Notice> World::addDisplay(int display) {
    if (!mDisplays.try_emplace(display).second) return {};
    return {{Notice::Kind::DisplayEvent, 0, 0, display, Notice::kDisplayAdded}};
}

std::vector<Notice> World::removeDisplay(int display) {
    if (display == kPrimaryDisplay || !mDisplays.contains(display)) return {};
    const Foreground before = foreground();
    mDisplays.erase(display);
    std::vector<Notice> notices{
            {Notice::Kind::DisplayEvent, 0, 0, display, Notice::kDisplayRemoved}};
    for (const Notice& notice : changesSince(before))
        notices.push_back(notice);
    return notices;
}

std::vector<Notice> World::changeDisplay(int display) const {
    if (!mDisplays.contains(display)) return {};
    return {{Notice::Kind::DisplayEvent, 0, 0, display, Notice::kDisplayChanged}};
}

std::vector<Notice> World::startActivity(int pid, int display) {
    const auto activities = mDisplays.find(display);
    if (!mProcesses.contains(pid) || activities == mDisplays.end()) return {};
    const Foreground before = foreground();
    std::erase(activities->second, pid);
    activities->second.push_back(pid);
    return changesSince(before);
}

std::vector<Notice> World::finishActivity(int pid, int display) {
    const auto activities = mDisplays.find(display);
    if (activities == mDisplays.end()) return {};
    const Foreground before = foreground();
    std::erase(activities->second, pid);
    return changesSince(before);
}

std::vector<Notice> World::setPanelService(int pid, bool running) {
    const auto process = mProcesses.find(pid);
    if (process == mProcesses.end()) return {};
    process->second.panelService = running;
    return changeServices(pid);
}

std::vector<Notice> World::changeServices(int pid) const {
    const auto process = mProcesses.find(pid);
    if (process == mProcesses.end()) return {};
    return {{Notice::Kind::ForegroundServices, pid, process->second.uid, 0, 0}};
}

std::vector<Notice> World::focusWindowOf(int pid) {
    if (!mProcesses.contains(pid)) return {};
    mFocusedPid = pid;
    return {focusNotice()};
}

std::vector<Notice> World::focusNoWindow() {
    mFocusedPid = 0;
    return {focusNotice()};
}

std::vector<Notice> World::activityReport() const {
    std::vector<Notice> notices = changesSince({});
    for (const auto& [pid, process] : mProcesses) {
        if (!process.panelService) continue;
        notices.push_back({Notice::Kind::ForegroundServices, pid, process.uid, 0, 0});
    }
    return notices;
}

std::vector<Notice> World::windowReport() const {
    if (mFocusedPid == 0) return {};
    return {focusNotice()};
}

bool World::hasForegroundPanelService(int pid, int uid) const {
    const Process* process = processOf(pid, uid);
    return process != nullptr && process->panelService;
}

bool World::hasActivityOnPrimaryDisplay(int pid, int uid) const {
    return processOf(pid, uid) != nullptr && contains(mDisplays.at(kPrimaryDisplay), pid);
}

std::vector<int> World::displaysWithTopActivities(int pid, const std::vector<int>& asked) const {
    std::vector<int> displays;
    for (const int display : asked) {
        const auto found = mDisplays.find(display);
        if (found == mDisplays.end() || found->second.empty()) continue;
        if (found->second.back() == pid) displays.push_back(display);
    }
    return displays;
}

std::string World::topPackageOnPrimaryDisplay() const {
    const std::vector<int>& activities = mDisplays.at(kPrimaryDisplay);
    return activities.empty() ? "" : packageOfProcess(mProcesses.at(activities.back()).name);
}

std::vector<std::string> World::packagesOf(int uid) const {
    std::vector<std::string> names;
    for (const auto& [name, package] : mPackages) {
        if (package.uid == uid) names.push_back(name);
    }
    return names;
}

std::optional<int> World::uidOf(const std::string& package) const {
    const auto found = mPackages.find(package);
    if (found == mPackages.end()) return {};
    return found->second.uid;
}

bool World::hasPermission(const std::string& permission, int uid) const {
    return std::any_of(mPackages.begin(), mPackages.end(), [&](const auto& entry) {
        return entry.second.uid == uid && entry.second.permissions.contains(permission);
    });
}

const World::Process* World::processOf(int pid, int uid) const {
    const auto process = mProcesses.find(pid);
    return process != mProcesses.end() && process->second.uid == uid ? &process->second : nullptr;
}

World::Foreground World::foreground() const {
    Foreground foreground;
    for (const auto& [display, activities] : mDisplays) {
        if (!activities.empty()) foreground[activities.back()].insert(display);
    }
    return foreground;
}

std::vector<Notice> World::changesSince(const Foreground& before) const {
    const Foreground after = foreground();
    std::vector<Notice> notices;
    for (const auto& [pid, displays] : before) {
        if (after.contains(pid) || !mProcesses.contains(pid)) continue;
        notices.push_back(
                {Notice::Kind::ForegroundActivities, pid, mProcesses.at(pid).uid, 0, /*value=*/0});
    }
    for (const auto& [pid, displays] : after) {
        const auto old = before.find(pid);
        if (old != before.end() && old->second == displays) continue;
        notices.push_back(
                {Notice::Kind::ForegroundActivities, pid, mProcesses.at(pid).uid, 0, /*value=*/1});
    }
    return notices;
}

Notice World::focusNotice() const {
    const auto owner = mProcesses.find(mFocusedPid);
    const int uid = owner == mProcesses.end() ? 0 : owner->second.uid;
    return {Notice::Kind::FocusedWindow, mFocusedPid, uid, 0, 0};
}

}  // namespace sim
