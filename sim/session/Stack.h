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

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "process/SessionFolder.h"
#include "session/DrivenProcess.h"
#include "world/World.h"

namespace sim {

class Stack {
public:
    struct Options {
        std::string programs;          // folder of the built programs
        std::string device;            // a kernel's binder device; empty: a hub of its own
        StopSignals* stops = nullptr;  // may be null; outlives the stack
        /** Told of every process that became ready. */
        std::function<void(const std::string& name, int pid)> onReady = [](auto&, int) {};
        /** How long anything that must happen may take. */
        std::chrono::milliseconds patience{10'000};
    };

    static constexpr const char* kHub = "binderhub";
    static constexpr const char* kServiceManager = "servicemanager";
    static constexpr const char* kDaemon = "vrfocus";
    static const std::vector<std::string>& serviceNames();

    /**
     * Starts nothing yet. SessionError when a program is missing, naming every one that is, or when
     * the device cannot be used.
     */
    explicit Stack(Options options);

    /** Hub (none on a device), service manager, services in their order, daemon; each ready before
     * the next. */
    void boot(const World& world);

    void startService(const std::string& name, const World& world);
    void killService(const std::string& name);
    [[nodiscard]] bool serviceRuns(const std::string& name) const;
    [[nodiscard]] DrivenProcess& service(const std::string& name);

    /** Returns when its observers are registered with those services that run. */
    void startDaemon();
    void killDaemon();
    [[nodiscard]] int daemonPid() const { return mDaemon == nullptr ? 0 : mDaemon->pid(); }
    [[nodiscard]] bool daemonRuns() const { return mDaemon != nullptr; }
    /** Waits until the daemon has an observer registered with a service. */
    void awaitDaemonObserver(const std::string& service);

    /** An app under its own name; uid absent: the session's own. */
    [[nodiscard]] std::unique_ptr<DrivenProcess> startApp(const std::string& name,
                                                          std::optional<uid_t> uid);

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
    [[nodiscard]] bool retry(const std::function<bool()>& done);

    /** Waits; SessionError when a process that should run has ended meanwhile. */
    void pause(std::chrono::milliseconds time);

    /** Kills one of the three that are not driven; the next pause() complains about it. */
    void killCore(const std::string& name);

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
    void startCore(const std::string& name, std::vector<std::string> arguments);
    void awaitReadyByte(const std::string& name, int fd, ChildProcess& process) const;
    [[nodiscard]] std::unique_ptr<DrivenProcess> startDriven(Launch launch,
                                                             const std::string& name) const;
    void checkRunning(const std::string& name, ChildProcess* process) const;

    const Options mOptions;
    const std::unique_ptr<SessionFolder> mFolder;
    // Destroyed in reverse: the daemon and the services before what they stand on.
    std::unique_ptr<ChildProcess> mHub;
    std::unique_ptr<ChildProcess> mServiceManager;
    std::map<std::string, std::unique_ptr<DrivenProcess>> mServices;
    std::unique_ptr<ChildProcess> mDaemon;
};

}  // namespace sim
