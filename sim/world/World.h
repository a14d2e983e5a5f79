// SPDX-License-Identifier: Apache-2.0
//
// The world of a headset.
//
// What the platform services would know: packages with their uids and permissions, processes,
// displays with the activities on them, panel services, the focused window. The session's
// controller owns the one that counts and changes it; every simulated service answers from a copy.
//
// Policy: a process is in the foreground when it owns the top activity of some display. Every
// change is followed by the notices that the platform would send for it: to those that lose
// something first, then to those that gain. A process that dies is reported as dead and nothing
// else; whoever tracks processes must notice by itself that it left the foreground.
//
// Threads: none of its own; not guarded. No calls, no clock.
#pragma once

#include <json/value.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "world/Notice.h"

namespace sim {

class World {
public:
    static constexpr int kPrimaryDisplay = 0;

    struct Package {
        int uid = 0;
        std::set<std::string> permissions;
        bool operator==(const Package&) const = default;
    };
    struct Process {
        std::string name;  // package name, optionally with ":suffix"
        int uid = 0;
        bool panelService = false;
        bool operator==(const Process&) const = default;
    };

    /** Only the primary display, with nothing on it. */
    World() : mDisplays{{kPrimaryDisplay, {}}} {}

    // Changes. Those that name an unknown process or display change nothing and tell nobody.

    void installPackage(const std::string& name, Package package);
    /** False when the package is not installed. */
    [[nodiscard]] bool setPermission(const std::string& package, const std::string& permission,
                                     bool granted);
    /** A pid that is known already is replaced silently: the system has reused it. */
    void addProcess(int pid, const std::string& name, int uid);
    [[nodiscard]] std::vector<Notice> removeProcess(int pid);
    /** All that a process had is another's, of the same name and uid, that was started for it. */
    void replaceProcess(int oldPid, int newPid);
    [[nodiscard]] std::vector<Notice> addDisplay(int display);
    /** The primary display cannot be removed. */
    [[nodiscard]] std::vector<Notice> removeDisplay(int display);
    /** Something else about a display: a notice, no state that anyone asks. */
    [[nodiscard]] std::vector<Notice> changeDisplay(int display) const;
    /** Puts the process's activity on top of the display; one that is there already moves up. */
    [[nodiscard]] std::vector<Notice> startActivity(int pid, int display);
    [[nodiscard]] std::vector<Notice> finishActivity(int pid, int display);
    [[nodiscard]] std::vector<Notice> setPanelService(int pid, bool running);
    /** A background service of a process starts or stops: a notice, no state that anyone asks. */
    [[nodiscard]] std::vector<Notice> changeServices(int pid) const;
    [[nodiscard]] std::vector<Notice> focusWindowOf(int pid);
    /** No window has focus: told as pid and uid 0. */
    [[nodiscard]] std::vector<Notice> focusNoWindow();

    /** All that an activity manager tells when it reports every process anew. */
    [[nodiscard]] std::vector<Notice> activityReport() const;
    /** Which window has focus now; nothing when none has. */
    [[nodiscard]] std::vector<Notice> windowReport() const;

    // Questions, as the platform services are asked them.

    [[nodiscard]] bool hasForegroundPanelService(int pid, int uid) const;
    /** Any activity on the primary display, on top or covered. */
    [[nodiscard]] bool hasActivityOnPrimaryDisplay(int pid, int uid) const;
    /** Those of the asked displays, in their order, on which the process has the top activity. */
    [[nodiscard]] std::vector<int> displaysWithTopActivities(int pid,
                                                             const std::vector<int>& asked) const;
    /** Package of the top activity on the primary display; empty when there is none. */
    [[nodiscard]] std::string topPackageOnPrimaryDisplay() const;
    /** In ascending order of names. */
    [[nodiscard]] std::vector<std::string> packagesOf(int uid) const;
    [[nodiscard]] std::optional<int> uidOf(const std::string& package) const;
    /** Who calls under a uid holds what the packages of that uid hold together. */
    [[nodiscard]] bool hasPermission(const std::string& permission, int uid) const;

    [[nodiscard]] const std::map<int, Process>& processes() const { return mProcesses; }
    [[nodiscard]] const std::map<std::string, Package>& packages() const { return mPackages; }
    /** By number, the pids of the activities on each, the top one last. */
    [[nodiscard]] const std::map<int, std::vector<int>>& displays() const { return mDisplays; }
    [[nodiscard]] int focusedWindowOwner() const { return mFocusedPid; }

    // As a message: fromJson(toJson()) is equal to the original.

    [[nodiscard]] Json::Value toJson() const;
    /** Absent when it is not what toJson() makes. */
    [[nodiscard]] static std::optional<World> fromJson(const Json::Value& value);

    bool operator==(const World&) const = default;

private:
    using Foreground = std::map<int, std::set<int>>;  // pid to the displays it is on top of

    [[nodiscard]] const Process* processOf(int pid, int uid) const;
    [[nodiscard]] Foreground foreground() const;
    [[nodiscard]] std::vector<Notice> changesSince(const Foreground& before) const;
    [[nodiscard]] Notice focusNotice() const;

    std::map<std::string, Package> mPackages;
    std::map<int, Process> mProcesses;          // by pid
    std::map<int, std::vector<int>> mDisplays;  // id to pids of its activities, top one last
    int mFocusedPid = 0;                        // 0: no window has focus
};

/** The package part of a process name: all before the first ':'. */
[[nodiscard]] std::string packageOfProcess(const std::string& processName);

}  // namespace sim
