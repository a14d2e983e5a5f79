// SPDX-License-Identifier: Apache-2.0
//
// Control of a hub by whoever launches it.
//
// Problem: an ordinary user cannot run processes under other uids. But their hub can say that it
// has seen some: for processes that the launcher started, and for nobody else. So the hub is
// controlled over one connection alone, which is handed to it at its start and cannot be had later.
//
//      unique_fd hubsEnd;
//      auto control = HubControl::make(&hubsEnd, &error);
//      fork, exec: binderhub --socket PATH --control-fd N      N: hubsEnd; close it here
//      control->awaitReady(...);
//      fork; control->assign(child, uid); exec in the child
//
// Only the process that made the connection is listened to: a child that has inherited it, against
// its being close-on-exec, controls nothing. When the connection ends the hub goes on: assignments
// stay as long as their processes, and no more can be made.
//
// Who was given no uid has AssignedUids::kOthersUid then, whatever the kernel's.
//
// The hub says whether something is in flight, so that a test can look at what must not have
// happened when nothing more can happen. What was caused by anything that had returned before the
// question was asked counts: calls, one-way calls, notices of death; see hub/Quiet.h for what a hub
// cannot see.
//
// Threads: one at a time. Errors: a Status each; those from Stopped on are this side's.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace binderhost {

class ForkGuard;

class HubControl {
public:
    enum class Status : uint32_t {
        Done = 0,
        NotAChild,         // of the process that made the connection
        OtherUser,         // its real uid is not the hub's
        Gone,              // no process has the pid, or it has ended
        NoUid,             // nobody can have this uid: more than 2^31 - 1
        AlreadyAssigned,   // to this process
        NotAssigned,       // there is nothing to replace
        AlreadyConnected,  // it has opened the driver
        TooMany,
        InFlight,  // not quiet
        NotWatching,
        Malformed,  // not a request that this hub knows
        Stopped,
        TimedOut,
        NoHub,  // it has ended, or closed the connection
    };
    /** For messages: "it is not a child of the launcher". */
    [[nodiscard]] static const char* describe(Status status);

    /** Null with a message. The other end is for the hub, and is close-on-exec here too. */
    [[nodiscard]] static std::unique_ptr<HubControl> make(android::base::unique_fd* hubsEnd,
                                                          std::string* error);
    ~HubControl();
    HubControl(const HubControl&) = delete;
    HubControl& operator=(const HubControl&) = delete;

    using Time = std::chrono::milliseconds;

    /** Until the hub listens. A readable `stop`, unless -1, ends the wait: Stopped. */
    [[nodiscard]] Status awaitReady(Time timeout, int stop = -1);

    /**
     * The child has this uid in all its calls, and for all that ask for the uid of its pid, until
     * it ends. It must not have opened the driver yet: stop it between fork and exec.
     */
    [[nodiscard]] Status assign(pid_t child, uid_t uid);

    /**
     * Another uid for a child that has one, as if its pid had been used again: for one that is to
     * exec itself. Takes effect, everywhere at once, as soon as the child has no connection to the
     * hub: now, or when it execs. So nothing is ever sent under two uids at a time.
     */
    [[nodiscard]] Status reassign(pid_t child, uid_t uid);

    /**
     * Waits until nothing is in flight, but for what waits for one of these processes, be it in
     * turn. TimedOut: `inFlight`, unless null, says what was.
     */
    [[nodiscard]] Status awaitQuiet(std::span<const pid_t> leftOut, Time timeout,
                                    std::string* inFlight = nullptr, int stop = -1);
    /** Done: nothing is in flight now. InFlight: something is, or the hub was still reading. */
    [[nodiscard]] Status askQuiet(std::span<const pid_t> leftOut, std::string* inFlight = nullptr);

    /** Done: one has asked to be told of the end of a node of the other. Else NotWatching. */
    [[nodiscard]] Status askWatch(pid_t watcher, pid_t watched);

private:
    explicit HubControl(android::base::unique_fd socket);
    [[nodiscard]] Status send(uint32_t kind, pid_t pid, uid_t uid, std::span<const pid_t> leftOut);
    /** The answer to the last request, or Ready. */
    [[nodiscard]] Status receive(Time timeout, int stop, uint32_t kind, std::string* text);

    android::base::unique_fd mSocket;
    const std::unique_ptr<ForkGuard> mGuard;
    uint64_t mLastId = 0;
};

}  // namespace binderhost
