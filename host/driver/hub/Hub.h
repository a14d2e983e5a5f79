// SPDX-License-Identifier: Apache-2.0
//
// Hub: what the kernel's binder module does, without any socket.
//
// Frames go in, records come out through each thread's Link. One thread, no clock, no system call
// but the check of memory files and the closing of descriptors: any interleaving can be played to
// it.
//
//      handle() ─▶ Calls, References, Deaths ─▶ Scheduler (lists) ─▶ flush() ─▶ Link::send()
//
// Errors: false from handle() means that the process broke the protocol; the caller ends it with
// closeProcess(). Everything else a process can do wrong is answered in the command language.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "hub/Calls.h"
#include "hub/Deaths.h"
#include "hub/Limits.h"
#include "hub/Process.h"

namespace binderhost::hub {

class Hub {
public:
    explicit Hub(const Limits& limits = {});
    ~Hub();
    Hub(const Hub&) = delete;
    Hub& operator=(const Hub&) = delete;

    [[nodiscard]] Process* openProcess(const Identity& identity);
    [[nodiscard]] Process* openProcess(pid_t pid) { return openProcess(Identity(pid)); }
    /** Ends the process and its threads; links are not used any more. */
    void closeProcess(Process* process);

    /** Null: the process has too many. The link must outlive the thread. */
    [[nodiscard]] Thread* openThread(Process* process, Link* link);
    void closeThread(Thread* thread);

    /** One frame of Commands, without its header. */
    [[nodiscard]] bool handle(Thread* thread, uint32_t flags, uid_t uid,
                              std::span<const uint8_t> commands, FrameDescriptors* descriptors);
    void cancelRead(Thread* thread);

    /** A one-way call out of the sender's outbox. What it sets going leaves with flush(). */
    void post(Process* sender, const Outbox::Letter& letter);
    /** Sends what threads are waiting for. Every other operation does so itself. */
    void flush();

    /** 0, -EBUSY or -EPERM: only the uid that had it first may have it again. */
    [[nodiscard]] int becomeContextManager(Process* process, uid_t uid);
    void setMaxThreads(Process* process, uint32_t count) { process->maxThreads = count; }
    void detectSpam(Process* process, bool enable) { process->spamDetection = enable; }

    [[nodiscard]] const std::vector<std::unique_ptr<Process>>& processes() const {
        return mProcesses;
    }
    /** Whether a process of the first pid is to be told of the death of a node of the other's. */
    [[nodiscard]] bool hasDeathLink(pid_t watcher, pid_t watched) const;

    /** What all processes pin, as "name=number" lines. */
    [[nodiscard]] std::string stats() const;

private:
    [[nodiscard]] bool handleCommand(Thread* thread, uint32_t command, uid_t uid, uint32_t flags,
                                     ByteReader* reader, FrameDescriptors* descriptors);
    [[nodiscard]] bool handleHandleCommand(Thread* thread, uint32_t command, ByteReader* reader);
    [[nodiscard]] bool handleCookieCommand(Thread* thread, uint32_t command, ByteReader* reader);
    void handleLooperCommand(Thread* thread, uint32_t command);
    void endThread(Thread* thread);
    void dropWork(Process* process, Work work);
    /** False: there was nothing to say after all. */
    [[nodiscard]] bool fill(Thread* thread, Record* record);
    [[nodiscard]] bool wantsLooper(Thread* thread);
    void send(Thread* thread, Record* record, uint32_t firstCommand);
    /** Takes the record's transaction back out: its call fails. */
    void withdraw(Thread* thread, Record* record);

    const Limits mLimits;
    Scheduler mScheduler;
    References mReferences;
    Buffers mBuffers;
    Deaths mDeaths;
    Calls mCalls;
    std::vector<std::unique_ptr<Process>> mProcesses;
    std::optional<uid_t> mContextManagerUid;
    uint64_t mPosted = 0;
    uint64_t mLastThread = 0;
    Record mRecord;
    /** The transaction at the end of the record, and where it starts there. */
    struct {
        Buffer* buffer = nullptr;
        bool reply = false;
        bool oneway = false;
        size_t position = 0;
    } mLast;
};

}  // namespace binderhost::hub
