// SPDX-License-Identifier: Apache-2.0
//
// The focus rules, said a second time.
//
// Problem: what the daemon answers after a long and random history is to be checked, and nobody
// can work out the answers by hand.
//
//      what happened, in order ──▶ Oracle ──▶ the answers that are due now
//
// It is told facts and asked questions in the order in which the daemon sees them. A question is a
// fact too, as it is for the daemon: the daemon makes the record of a process when it first meets
// it, and the record keeps the packages and permissions of that moment. So ask both the same
// things, in the same order. Of a notice only tell what reached the daemon.
//
// Nothing of the daemon is linked or included; what platform services answer is taken from the
// simulated world.
//
// Limits: one thing at a time, each finished before the next. Services answer, refuse or are away,
// they do not hang or answer nonsense; each listener is an object of its own. History is not
// foretold, nor are log lines but for those of missedInDump().
//
// Threads: not guarded. No calls, no clock, no chance.
#pragma once

#include <json/value.h>

#include <compare>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "world/World.h"

namespace oracle {

inline constexpr int kHeadTracking = 0;  // focus types
inline constexpr int kInputTracking = 1;
inline constexpr int kVisible = 0;  // session states that count
inline constexpr int kStopping = 2;

struct Verdict {
    int pid = 0;
    bool hasFocus = false;
    bool operator==(const Verdict&) const = default;
};

struct ImmersiveApp {
    std::string package;
    int pid = 0;
    int uid = 0;
    bool isTopActivity = true;  // of every chosen one
    bool operator==(const ImmersiveApp&) const = default;
};

class Oracle {
public:
    /** Those that the daemon's answers depend on. */
    enum class Service { Activity, Display, Permission, Window };

    // Facts about the system. At first: an empty world, no process, no service.

    /** What every connected service answers from now on; tell it before the notices it brings. */
    void servicesAnswerFrom(sim::World world) { mWorld = std::move(world); }
    /** A pid that has ended may come back, under any uid. */
    void processStarted(int pid, int uid, const std::string& name) {
        mProcesses[pid] = {uid, name};
    }
    void processRenamed(int pid, const std::string& name) { mProcesses.at(pid).name = name; }
    /** Its listeners end with it. */
    void processEnded(int pid);
    /** "ro.debuggable" and "debug.nqs.vrfocus.permissive". */
    void propertiesAre(bool debuggable, bool permissive) { mPermissive = debuggable && permissive; }
    void serviceConnected(Service service) { mConnected.insert(service); }
    void serviceDisconnected(Service service);
    /** Calls of a method of theirs are refused, all of them or the next ones; none: not any more.
     */
    void methodRefuses(const std::string& method, int times) { mRefusals[method] = times; }
    void methodAnswers(const std::string& method) { mRefusals.erase(method); }
    /** A new daemon, connected to the services that the old one was connected to. */
    void daemonRestarted() { mDaemon = {}; }

    // Facts about the daemon: notices it took, calls it accepted.

    void noticed(const sim::Notice& notice);
    void appStateSet(int pid, int state);
    void trackingGranted(int display);
    void trackingRevoked(int display);
    void listenerRegistered(int pid, int type) { mDaemon.listeners[type].insert(pid); }
    /** Also when it was refused since there is none. */
    void listenerUnregistered(int pid, int type) { mDaemon.listeners[type].erase(pid); }

    // Questions to the daemon, and what it has to answer.

    /** In the order of the answer: by uid, then by pid. */
    [[nodiscard]] std::vector<Verdict> clientFocusStatus(int type, const std::vector<int>& pids);
    [[nodiscard]] std::optional<ImmersiveApp> immersiveApp();
    [[nodiscard]] std::string topActivity();
    [[nodiscard]] std::vector<std::string> foregroundApps();
    /** Equal to what the text of the dump in JSON parses to. */
    [[nodiscard]] Json::Value jsonDump();
    /** Whom it looks for in vain while it makes that dump, each a line in its log: of those that
     *  have ended it remembers nobody but whose window it was. */
    [[nodiscard]] std::set<int> missedInDump() const;

    /** Whether it has asked the display manager to hear of removed displays; no question to it. */
    [[nodiscard]] bool watchesDisplays() const { return mDaemon.watchesDisplays; }

private:
    struct Client {
        int uid = 0;
        int pid = 0;
        auto operator<=>(const Client&) const = default;
    };
    struct Process {
        int uid = 0;
        std::string name;
    };
    /** Who a process was when the daemon first met it, and what it was told of its focus. */
    struct Record {
        Client client;
        std::string process;
        std::string package;
        std::set<int> mayInBackground;
        std::set<int> holds;
    };
    /** What a daemon remembers, and a new one does not. */
    struct Daemon {
        std::map<int, Record> records;   // by pid
        std::vector<Client> foreground;  // on the primary display, newest last
        std::set<Client> panels;
        std::set<Client> onTop;  // of the primary or of a granted display
        std::set<Client> onTopAnywhere;
        std::set<Client> rendering;
        Client window;
        std::set<int> granted;  // displays besides the primary one
        bool mainDisplayFocus = true;
        bool watchesDisplays = false;
        std::optional<ImmersiveApp> immersive;
        std::map<int, std::set<int>> listeners;  // focus type to pids
    };

    [[nodiscard]] bool isConnected(Service service) const { return mConnected.contains(service); }
    [[nodiscard]] bool isAnswered(Service service, const std::string& method);
    [[nodiscard]] bool isAlive(int pid) const { return mProcesses.contains(pid); }
    template <typename Clients>
    const Clients& living(Clients& clients) const;

    void activitiesChanged(const Client& client, bool foreground);
    void servicesChanged(const Client& client);
    [[nodiscard]] bool hasPrimaryActivity(const Client& client);
    void keepSomebodyInForeground();
    void notifyEverybody();

    [[nodiscard]] std::optional<Record> meet(int pid);
    [[nodiscard]] Record recordOf(int pid, const Process& process);
    [[nodiscard]] std::set<Client> everybodyMet();
    [[nodiscard]] bool isInFront(int type, const Record& record) const;
    [[nodiscard]] std::optional<ImmersiveApp> chooseImmersiveApp();
    template <typename Clients>
    [[nodiscard]] Json::Value pidsOf(const Clients& clients);

    sim::World mWorld;
    std::map<int, Process> mProcesses;  // those alive, by pid
    std::set<Service> mConnected;
    std::map<std::string, int> mRefusals;  // by method; how many more, 0: without end
    bool mPermissive = false;
    Daemon mDaemon;
};

}  // namespace oracle
