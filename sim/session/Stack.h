// SPDX-License-Identifier: Apache-2.0
//
// The processes that make up a headset, all but the apps.
//
//      Stack ── binderhub              every call goes through it, unless a device carries them
//            ── servicemanager         names to binders
//            ── sim_service NAME  x 6  the platform services, each driven over its own channel
//            ── vrfocus                the daemon, unmodified
//
// and, when asked for, the tools that people use in such a stack (StackTools.cpp).
//
// Owns the session's folder and everything in it. Programs are taken from one folder. One thread.
// Whatever fails throws SessionError; whatever waits throws SessionStopped when told to stop.
#pragma once

#include <driver/HubControl.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "process/SessionFolder.h"
#include "session/DrivenProcess.h"
#include "session/KernelBinder.h"
#include "world/FaultPlan.h"
#include "world/World.h"

namespace sim {

class Stack {
public:
    struct Options {
        std::string programs;          // folder of the built programs
        std::string device;            // a kernel's binder device; empty: a hub of its own
        StopSignals* stops = nullptr;  // may be null; outlives the stack
        /** How long anything that must happen may take. */
        std::chrono::milliseconds patience{10'000};
        /** Set before any process starts. A development build: debug properties take effect. */
        std::map<std::string, std::string> properties{{"ro.debuggable", "1"}};
    };

    static constexpr const char* kHub = "binderhub";
    static constexpr const char* kServiceManager = "servicemanager";
    static constexpr const char* kDaemon = "vrfocus";
    /** Patience that many times over: a slow process answers, but not soon. */
    static constexpr int kTurnsOfSlowProcesses = 10;
    static const std::vector<std::string>& serviceNames();

    /**
     * Starts nothing yet. SessionError when a program is missing, naming every one that is, or when
     * the device cannot be used.
     */
    explicit Stack(Options options);

    /** Hub (none on a device), service manager, services in their order, daemon; each ready before
     * the next. */
    void boot(const World& world);

    /** How a service is started when it is not as it should be. */
    struct ServiceStart {
        std::chrono::milliseconds late{0};  // published after that time, which is not waited for
        std::string descriptor;             // empty: its own
    };
    void startService(const std::string& name, const World& world, const ServiceStart& how);
    void startService(const std::string& name, const World& world) {
        startService(name, world, {});
    }
    void killService(const std::string& name);
    [[nodiscard]] bool serviceRuns(const std::string& name) const;
    [[nodiscard]] DrivenProcess& service(const std::string& name);
    /**
     * The answer of a service; absent when there is none to be had, since it does not run, hangs or
     * ends as a fault has it end. Nothing is sent to one that hangs.
     */
    [[nodiscard]] std::optional<Json::Value> askService(const std::string& name,
                                                        const Json::Value& request);
    /** Whether a service is published under its name: not before its time, not when misnamed. */
    [[nodiscard]] bool isPublished(const std::string& name);

    /** Returns when its observers are registered with those services that let it. */
    void startDaemon();
    void killDaemon();
    [[nodiscard]] int daemonPid() const { return mDaemon == nullptr ? 0 : mDaemon->pid(); }
    [[nodiscard]] bool daemonRuns() const { return mDaemon != nullptr; }
    /** Waits until the daemon has an observer registered with a service; not when the service does
     *  not run, hangs, has a fault or is not published yet, or the daemon does not run. */
    void awaitDaemonObserver(const std::string& service);

    // Faults (StackFaults.cpp). A name is a service's or one of the three above.

    /** Sets or clears a fault of a running service, as ServiceControl does: its answer. A misnamed
     *  service stays misnamed. SessionError when the service cannot have that fault or hangs. */
    Json::Value setFault(const std::string& service, const FaultPlan& plan);
    [[nodiscard]] bool isMisnamed(const std::string& service) const {
        return mMisnamed.contains(service);
    }
    /** Null when it does not run. */
    [[nodiscard]] ChildProcess* find(const std::string& name);
    /** Whether the processes that the others stand on run: hub, or device, and service manager. */
    [[nodiscard]] bool isUp() const;
    /**
     * Takes one down, with SIGKILL or orderly; pause() does not complain. With the hub or the
     * service manager goes all that stands on it.
     */
    void kill(const std::string& name);
    void stop(const std::string& name);
    /** What of hub, service manager, services and daemon does not run, as boot() does. */
    void bringUp(const World& world);
    /** Whether a service cannot send its notices now: it hangs itself, or the hub does. */
    [[nodiscard]] bool isHeldUp(const std::string& service);

    /**
     * Waits until no call, notice or news of a death is on its way, but for what waits for a
     * process that hangs; those of the apps are to be named. At once where nobody knows. False:
     * something still is, as said in `inFlight`.
     */
    [[nodiscard]] bool awaitQuiet(const std::vector<pid_t>& hungApps, std::string* inFlight);
    /** Whether somebody knows what is in flight: not while the hub hangs, and on a device only for
     *  root, where the debug files of the kernel's binder are mounted. */
    [[nodiscard]] bool knowsQuiet() const;
    /** Whether the daemon has asked to be told of the service's end, which it does when it has
     *  found it; absent where knowsWatches() is false. */
    [[nodiscard]] std::optional<bool> daemonWatches(const std::string& service);
    /** With a hub, and on a device as for knowsQuiet(). */
    [[nodiscard]] bool knowsWatches() const { return mControl != nullptr || mKernel != nullptr; }

    /**
     * Who says which uid a process has. A hub of the session's own, whatever the kernel says. On a
     * device the kernel, which lets only root's session choose: others' apps all have its own.
     */
    enum class Uids { Hubs, Kernels, Own };
    [[nodiscard]] Uids uids() const { return mUids; }

    /** Has the hub say that a child of this process has the uid, before that opens the driver.
     *  Empty, or why it cannot have it. */
    [[nodiscard]] std::string vouch(pid_t child, uid_t uid) const;
    /** With a hub: the uid that an app has from its next exec on. */
    void changeUid(pid_t app, uid_t uid);

    /** Of tools, and of all that is not started here: the shell's, on a device this process's. */
    [[nodiscard]] int toolUid() const;
    /** Of services and daemon: the system's, on a device this process's. */
    [[nodiscard]] int systemUid() const;

    /** An app under its own name and, where there are any, its own uid. keepsRoot: as in Launch. */
    [[nodiscard]] std::unique_ptr<DrivenProcess> startApp(const std::string& name, uid_t uid,
                                                          bool keepsRoot = false);

    // Tools: programs of the same folder, run in the stack as a person would run them.

    struct ToolRun {
        int status = 0;      // as a shell says it
        std::string output;  // standard output, then what it said on standard error
    };
    /** Runs a tool to its end. SessionError when it does not end in time. */
    [[nodiscard]] ToolRun runTool(const std::vector<std::string>& arguments);
    /** Starts a tool that writes to a descriptor, which stays the caller's. */
    [[nodiscard]] std::unique_ptr<ChildProcess> startTool(const std::vector<std::string>& arguments,
                                                          int outputFd);
    /** What makes a program speak to this stack: the driver, the properties, the telemetry. */
    [[nodiscard]] std::map<std::string, std::string> environment() const;
    [[nodiscard]] const std::string& programs() const { return mOptions.programs; }

    /** A process of the stack, by the name of its program or service. */
    struct Member {
        std::string name;
        ChildProcess* process;  // valid until the process is killed or started anew
    };
    /** All that were started and not killed here. */
    [[nodiscard]] std::vector<Member> members() const;

    /** Tries with growing pauses until done says so; false when it never does in time. */
    [[nodiscard]] bool retry(const std::function<bool()>& done) {
        return retry(done, mOptions.patience);
    }
    [[nodiscard]] bool retry(const std::function<bool()>& done, std::chrono::milliseconds patience);

    /** Waits; SessionError when a process that should run has ended meanwhile. A service that ends
     *  as a fault has it end is forgotten. */
    void pause(std::chrono::milliseconds time);

    /** SessionError when the hub has ended, or is about to: others may have been seen to end of it
     *  first, since it closes their sockets before it is gone. */
    void checkHub() const;

    [[nodiscard]] const SessionFolder& folder() const { return *mFolder; }
    [[nodiscard]] std::chrono::milliseconds patience() const { return mOptions.patience; }
    [[nodiscard]] StopSignals* stops() const { return mOptions.stops; }

    /** The last lines of every log that is not empty, for messages about failures. */
    [[nodiscard]] std::string logTails() const;

private:
    [[nodiscard]] Launch launchOf(const std::string& program, const std::string& log) const;
    [[nodiscard]] std::unique_ptr<ChildProcess> start(const Launch& launch) const;
    void checkPrograms() const;
    void checkDevice() const;
    void prepareFiles();
    void startHub();
    void startServiceManager();
    [[nodiscard]] Launch toolLaunch(const std::string& program) const;
    /** Has the hub, where there is one, vouch for the process to be started. */
    [[nodiscard]] Launch vouchedFor(Launch launch, uid_t uid) const;
    void awaitReadyByte(const std::string& name, int fd, ChildProcess& process) const;
    [[nodiscard]] std::unique_ptr<DrivenProcess> startDriven(Launch launch,
                                                             const std::string& name) const;
    void checkRunning(const std::string& name, ChildProcess* process) const;
    void checkUp(const std::string& whatFor) const;
    void forgetEnded();
    void forget(const std::string& service);
    void takeDown(const std::string& name);
    [[nodiscard]] bool awaitQuietKernel(const std::vector<pid_t>& hung,
                                        std::chrono::milliseconds patience, std::string* inFlight);

    const Options mOptions;
    const Uids mUids;
    const std::unique_ptr<SessionFolder> mFolder;
    // Destroyed in reverse: the daemon and the services before what they stand on.
    std::unique_ptr<binderhost::HubControl> mControl;
    std::unique_ptr<KernelBinder> mKernel;  // of the device, where it can be read
    std::unique_ptr<ChildProcess> mHub;
    std::unique_ptr<ChildProcess> mServiceManager;
    std::map<std::string, std::unique_ptr<DrivenProcess>> mServices;
    std::unique_ptr<ChildProcess> mDaemon;
    std::set<std::string> mMortal;    // services that a fault has end in a call
    std::set<std::string> mFaulty;    // services with a fault of their calls, mortal ones too
    std::set<std::string> mMisnamed;  // services with a wrong descriptor
    std::set<std::string> mLate;      // services that were not published when last asked
};

}  // namespace sim
