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
#include "session/Fact.h"
#include "session/Stack.h"
#include "world/World.h"

namespace sim {

class Headset {
public:
    struct Options {
        Stack::Options stack;
        /** Told in a line what has happened, after it has. */
        std::function<void(const std::string& line)> onEvent = [](auto&) {};
        /** The same for programs; it may ask the headset, but do nothing to it. */
        std::function<void(const Fact& fact)> onFact = [](auto&) {};
    };

    /** An app, or a native process, as it is to be started. */
    struct AppSpec {
        std::string name;     // by which it is known here
        std::string process;  // its process's name, whose package is what stands before a ':'
        int uid = 0;
        bool isReusable = false;  // its pid can come back under another uid
    };

    static constexpr int kVisible = 0;  // XR session states that apps report
    static constexpr int kStopping = 2;

    explicit Headset(Options options);

    /** Of a session with programs of a folder: on the device that BINDER_DRIVER names or a hub of
     *  its own. The stop signals outlive it. */
    [[nodiscard]] static Options usualOptions(const std::string& programs, StopSignals& stops);

    void boot();
    [[nodiscard]] Stack& stack() { return mStack; }
    [[nodiscard]] const World& world() const { return mWorld; }

    // Packages and apps.

    void install(const std::string& package, int uid, std::set<std::string> permissions = {});
    void setPermission(const std::string& package, const std::string& permission, bool granted);
    [[nodiscard]] bool isInstalled(const std::string& package) const {
        return mUids.contains(package);
    }
    /** Starts the process; where no uids are to be had, under the session's own. */
    void startApp(const AppSpec& wanted);
    /** An installed package's process, known by its name; a first answer of the daemon is waited
     *  for. */
    void startApp(const std::string& process);
    /** kill -9, unless it has ended by itself; the platform notices. */
    void crashApp(const std::string& name);
    /** It ends by itself, with exit status 0; the platform notices. */
    void stopApp(const std::string& name);
    /** Its command line changes, and nothing else: not what the platform calls it. */
    void renameApp(const std::string& name, const std::string& process);
    /**
     * An app ends and its pid comes back as another, at once; the platform then tells of the end.
     * Under another uid only where apps have their own and the first was started as reusable.
     */
    void reuse(const std::string& name, const AppSpec& successor);
    /** The driven process of a running app. */
    [[nodiscard]] DrivenProcess& app(const std::string& name);
    [[nodiscard]] int uidOf(const std::string& name) const;
    /** How an app was started last; SessionError when it never was. */
    [[nodiscard]] const AppSpec& specOf(const std::string& name) const;
    /** What its process calls itself now: renameApp() may have changed it. */
    [[nodiscard]] std::string processNameOf(const std::string& name) const;
    [[nodiscard]] bool wasStarted(const std::string& name) const { return mSpecs.contains(name); }
    [[nodiscard]] int uidOfPackage(const std::string& package) const { return mUids.at(package); }
    /** Whether a package or an app, that may have ended, has it. */
    [[nodiscard]] bool isTaken(int uid) const;
    [[nodiscard]] bool appRuns(const std::string& name) const { return mApps.contains(name); }
    /** The name of the app that has or had a pid; "nobody" for 0. */
    [[nodiscard]] std::string nameOf(int pid) const;
    /** The names of those that have been started and not crashed. */
    [[nodiscard]] std::vector<std::string> runningApps() const;
    /** In the order of their first start, those that have ended too. */
    [[nodiscard]] const std::vector<std::string>& cast() const { return mCast; }
    /** SessionError when it was never started. */
    [[nodiscard]] int lastPidOf(const std::string& name) const;

    // What people and apps do.

    /** An activity on top of a display; on the primary one its window gets the focus too. */
    void showActivity(const std::string& name, int display = World::kPrimaryDisplay);
    void finishActivity(const std::string& name, int display = World::kPrimaryDisplay);
    void focusWindow(const std::string& name);
    void focusNoWindow();
    void setPanelService(const std::string& name, bool running);
    void startBackgroundService(const std::string& name);
    /** A display that is there, or one that is not, or the removal of the main one: SessionError.
     */
    void addDisplay(int display);
    void removeDisplay(int display);
    /** Something else about it: a notice alone. */
    void changeDisplay(int display);
    void setProperty(const std::string& name, const std::string& value);
    void reportXrSession(const std::string& name, int state);
    /** The exception code of the call. */
    int grantTracking(const std::string& name, int display);
    int revokeTracking(const std::string& name, int display);

    /** All that the actions change is what services answer from then on, but they tell nobody. */
    void quietly(const std::function<void()>& actions);
    /** A notice alone: what services answer stays. Anything may be in it. One of a service that
     *  does not run is lost; one of a service that hangs is sent when it runs on. */
    void notice(const Notice& notice);

    // What happens to the system (HeadsetFaults.cpp). A target is the name of a service, one of the
    // Stack's three, or an app. What is not there is a SessionError, as the hub is on a device.

    void killService(const std::string& name);
    /** Returns when the daemon is connected again, for services that it observes and that are not
     *  late. late: published that long after its start, which is not waited for. */
    void restartService(const std::string& name, std::chrono::milliseconds late = {});
    void killDaemon();
    void restartDaemon();
    /**
     * Sets or clears a fault of a service. For a wrong descriptor, and to end it, the service is
     * started anew. Faults end with the process that has them.
     */
    void setFault(const std::string& service, const FaultPlan& plan);
    /**
     * SIGKILL, or an orderly end. With the hub or the service manager goes all that spoke to it:
     * services, daemon, apps. The world stays.
     */
    void kill(const std::string& target);
    void stop(const std::string& target);
    /** Held from when this returns until resume(). */
    void hang(const std::string& target);
    /** Runs on at full speed; a service gets the world of now, then sends what it did not. */
    void resume(const std::string& target);
    /** Held that long at a time with a millisecond of running between, until resume(). */
    void slow(const std::string& target, std::chrono::milliseconds held);
    /**
     * Killed if it runs, and started as before. The hub or the service manager brings everything
     * back as it came at boot, then the apps that had gone with them: new processes in the places
     * of the old ones, whose listeners and XR sessions are gone.
     */
    void restart(const std::string& target, std::chrono::milliseconds late = {});
    [[nodiscard]] bool isRunning(const std::string& target);
    [[nodiscard]] bool isHung(const std::string& target);
    /** Whether the daemon is known to be connected to a service: it has an observer with it, or
     *  where it registers none at first, watches for its end; where Stack::knowsWatches() is
     *  false, has called it. */
    [[nodiscard]] bool isDaemonConnected(const std::string& service);
    /** The activity manager tells again who is in the foreground and who runs panels. */
    void reportActivitiesAgain();
    void reportWindowAgain();

    /** Whether it is waited after each notice until it has had its effects; at first not. */
    void settleNotices(bool on) { mSettlesNotices = on; }
    /** Waits until no call, notice or news of a death is on its way to anybody. */
    void settle();
    /** Whether an app or a service runs and is not held, and so will answer its controller. */
    [[nodiscard]] bool responds(const std::string& name);

    // Questions.

    /** Any question of an app to the daemon; see AppControl for operations. */
    Json::Value ask(const std::string& name, Json::Value request);
    /** The daemon's dump, as dumpsys shows it with these arguments. */
    [[nodiscard]] Stack::ToolRun dump(const std::vector<std::string>& arguments);
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
    [[nodiscard]] bool haveUids() const { return mStack.uids() != Stack::Uids::Own; }
    void apply(const std::vector<Notice>& notices);
    void pushWorld();
    void enter(const AppSpec& spec, std::unique_ptr<DrivenProcess> app);
    void takeSent(const Json::Value& answer);
    void tell(const Fact& fact);
    void tellOfSystem();
    [[nodiscard]] std::string describe(const Notice& notice) const;
    [[nodiscard]] ChildProcess& process(const std::string& target);
    void refuseHubOfDevice(const std::string& target) const;
    void takeDown(const std::string& target, bool isOrderly);
    void startAppsAnew();
    void requireDisplay(int display) const;
    void sendHeldUp();
    [[nodiscard]] int askDisplay(const std::string& name, const char* op, int display);
    void addVerdicts(const std::string& reader, int type, bool Verdict::*member, Answers* out);

    const Options mOptions;
    World mWorld;
    Stack mStack;
    std::map<std::string, int> mUids;            // by package
    std::map<std::string, std::string> mCalled;  // apps that took another process name
    std::map<std::string, AppSpec> mSpecs;       // by name, of its last start
    std::map<std::string, std::unique_ptr<DrivenProcess>> mApps;
    std::vector<std::string> mCast;
    std::map<std::string, int> mPids;    // by name, of its last start
    std::map<int, std::string> mOwners;  // by pid, the last app that had it
    std::vector<std::string> mGone;      // apps that ended with the hub or the service manager
    std::vector<Notice> mHeldUp;         // notices of services that hang
    std::map<std::string, int> mTold;    // the services and the daemon that were told of, to pids
    bool mIsQuiet = false;
    bool mSettlesNotices = false;
};

}  // namespace sim
