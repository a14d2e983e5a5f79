// SPDX-License-Identifier: Apache-2.0
//
// Connection: a socket of a process or of one of its threads, and what it is known to be.
#pragma once

#include <android-base/unique_fd.h>

#include "hub/Link.h"
#include "hub/Process.h"

namespace binderhost::hub {

class Connection : public Link {
public:
    enum class Kind {
        Listener,
        Signal,
        Stranger,
        Process,
        ProcessExit,
        Thread,
        Bells,
        Bell,
        Control,
        AssignedExit
    };

    /** A driver that does not take what it asked for is put on the list, which outlives this. */
    Connection(Kind kind, android::base::unique_fd descriptor, std::vector<Connection*>* stuffed)
          : mKind(kind), mDescriptor(std::move(descriptor)), mStuffed(stuffed) {}

    /** Never blocks: one record is on its way at most, unless the process broke the protocol. */
    [[nodiscard]] bool send(const Record& record) override;

    void becomeProcess(Process* process) {
        mKind = Kind::Process;
        mProcess = process;
    }
    void becomeThread(Process* process, Thread* thread) {
        mKind = Kind::Thread;
        mProcess = process;
        mThread = thread;
    }
    /** The watch of a process's end or the bell of its outbox, beside its connection. */
    void watch(Process* process) { mProcess = process; }
    /** The watch of the end of a process that has an assigned uid. */
    void watch(pid_t pid) { mPid = pid; }
    /** Its thread has ended; what else hangs on it ends with the connection. */
    void close() {
        mDescriptor.reset();
        mThread = nullptr;
        mProcess = nullptr;
    }

    [[nodiscard]] Kind kind() const { return mKind; }
    [[nodiscard]] int descriptor() const { return mDescriptor.get(); }
    [[nodiscard]] bool open() const { return mDescriptor.ok(); }
    [[nodiscard]] Process* process() const { return mProcess; }
    [[nodiscard]] Thread* thread() const { return mThread; }
    [[nodiscard]] pid_t watchedPid() const { return mPid; }

private:
    Kind mKind;
    android::base::unique_fd mDescriptor;
    Process* mProcess = nullptr;
    Thread* mThread = nullptr;
    pid_t mPid = 0;
    std::vector<Connection*>* mStuffed;
};

}  // namespace binderhost::hub
