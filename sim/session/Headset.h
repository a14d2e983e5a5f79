// SPDX-License-Identifier: Apache-2.0
//
// The simulated headset.
//
// Problem: the daemon is to be seen deciding from what real processes tell and ask it.
//
//      Headset ── World                  what is the case, owned here
//              ── Stack                  hub, service manager, services, daemon
//              ── apps                   one process each, under its own name
//
// Every action changes the world, hands the new one to the services that answer from it, and then
// has them send the notices that the change brings. Services can die and come back: the world
// stays. Notices are one-way, so an action has happened when it returns, but the daemon may not
// have acted on it yet: expect() asks until the answers are those that are due.
//
// One thread. Failures throw SessionError, a wish to stop throws SessionStopped.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "session/Answers.h"
#include "session/Stack.h"
#include "world/World.h"

namespace sim {

class Headset {
public:
    struct Options {
        Stack::Options stack;
        /** Apps run under the uids they were installed with; else all under the session's own. */
        bool ownUids = false;
        /** Told in a line what has happened, after it has. */
        std::function<void(const std::string& line)> onEvent = [](auto&) {};
    };

    static constexpr int kVisible = 0;  // XR session states that apps report
    static constexpr int kStopping = 2;

    explicit Headset(Options options);

    void boot() { mStack.boot(mWorld); }
    [[nodiscard]] Stack& stack() { return mStack; }
    [[nodiscard]] const World& world() const { return mWorld; }

    // Packages and apps. An app is known by its process name.

    void install(const std::string& package, int uid, std::set<std::string> permissions = {});
    /** Starts the process; a first answer of the daemon is waited for. */
    void startApp(const std::string& name);
    /** kill -9, unless it has ended by itself; the platform notices. */
    void crashApp(const std::string& name);
    /** The driven process of a running app. */
    [[nodiscard]] DrivenProcess& app(const std::string& name);
    [[nodiscard]] int uidOf(const std::string& name) const;
    /** The names of those that have been started and not crashed. */
    [[nodiscard]] std::vector<std::string> runningApps() const;
    /** In the order of their first start, those that have ended too. */
    [[nodiscard]] const std::vector<std::string>& cast() const { return mCast; }
    [[nodiscard]] int lastPidOf(const std::string& name) const { return mPids.at(name); }

    // What people and apps do.

    /** An activity on top of a display; on the primary one its window gets the focus too. */
    void showActivity(const std::string& name, int display = World::kPrimaryDisplay);
    void finishActivity(const std::string& name, int display = World::kPrimaryDisplay);
    void focusWindow(const std::string& name);
    void setPanelService(const std::string& name, bool running);
    void startBackgroundService(const std::string& name);
    void addDisplay(int display);
    void removeDisplay(int display);
    void reportXrSession(const std::string& name, int state);
    /** The exception code of the call. */
    int grantTracking(const std::string& name, int display);
    int revokeTracking(const std::string& name, int display);

    // What happens to the system.

    void killService(const std::string& name);
    /** Returns when the daemon is connected again, for services that it observes. */
    void restartService(const std::string& name);
    void killDaemon();
    void restartDaemon();
    /** The activity manager tells again who is in the foreground and who runs panels. */
    void reportActivitiesAgain();
    void reportWindowAgain();

    /**
     * Told whenever something has been done that makes the daemon notify its listeners and the
     * helper; focusToo: the focus listeners as well.
     */
    void onNotification(std::function<void(bool focusToo)> told) {
        mOnNotification = std::move(told);
    }

    // Questions.

    /** Any question of an app to the daemon; see AppControl for operations. */
    Json::Value ask(const std::string& name, Json::Value request);
    /** All that the daemon tells the app that asks, about every app of the cast. */
    [[nodiscard]] Answers answersFor(const std::string& reader);
    /**
     * Asks until the answers are the expected ones. SessionError with the differences if never.
     * An app that must run as root is expected to have all focus: root tracks in the background
     * unasked.
     */
    Answers expect(const std::string& reader, Answers expected);
    /** Waits until a condition holds; SessionError naming it if it never does. */
    void awaitTrue(const std::string& what, const std::function<bool()>& condition);
    /** The event mask that the daemon registered with the display manager; 0 when none. */
    [[nodiscard]] int displayMask();

private:
    void apply(const std::vector<Notice>& notices);
    void pushWorld();
    void tell(const Notice& notice);
    [[nodiscard]] std::string describe(const Notice& notice, int told) const;
    [[nodiscard]] std::string nameOf(int pid) const;
    [[nodiscard]] int askDisplay(const std::string& name, const char* op, int display);
    void addVerdicts(const std::string& reader, int type, bool Verdict::*member, Answers* out);

    const Options mOptions;
    std::function<void(bool focusToo)> mOnNotification = [](bool) {};
    World mWorld;
    Stack mStack;
    std::map<std::string, int> mUids;  // by package
    std::map<std::string, std::unique_ptr<DrivenProcess>> mApps;
    std::vector<std::string> mCast;
    std::map<std::string, int> mPids;  // by process name, of its last start
};

}  // namespace sim
