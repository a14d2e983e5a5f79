// SPDX-License-Identifier: Apache-2.0
//
// The bells of outboxes, and how a process gets one. Part of Server.
#include <fcntl.h>
#include <sys/eventfd.h>

#include <cerrno>

#include "embedded/Clock.h"
#include "hub/Report.h"
#include "hub/Server.h"

namespace binderhost::hub {

using android::base::unique_fd;

void Server::hearBells() {
    // One look at all sockets is no snapshot: a frame may be in it and the bell that rang before
    // the frame was sent not. So the bells have a set of their own, which is asked after it.
    mRung.resize(mBellCount);
    const int count = epoll_wait(mBells.get(), mRung.data(), static_cast<int>(mRung.size()), 0);
    for (int i = 0; i < count; i++) {
        const auto* bell = static_cast<const Connection*>(mRung[static_cast<size_t>(i)].data.ptr);
        mOutboxes.rung(bell->process());
    }
}

void Server::takeLetters() {
    if (mBellCount == 0) return;
    const uint64_t until = monotonicNow();
    hearBells();
    if (!mOutboxes.pending()) return;
    const auto give = [this](Process* process, const Outbox::Letter& letter) {
        mHub.post(process, letter);
    };
    const std::vector<Process*> broken = mOutboxes.take(until, give);
    mHub.flush();
    for (Process* process : broken) {
        report("cut off process %d: a malformed letter", process->identity.pid());
        closeProcess(process);
    }
}

void Server::openOutbox(Connection* connection, uid_t uid) {
    Process* process = connection->process();
    std::array<unique_fd, 2> memory;
    unique_fd bell(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    unique_fd theirs(fcntl(bell.get(), F_DUPFD_CLOEXEC, 0));
    std::unique_ptr<Outbox> outbox;
    if (process->outbox) {
        cutOff(connection, "asks for a second outbox");
        return;
    }
    // What the kernel has stamped this request with.
    const bool allowed = process->identity.cannotChange(mReceived.credentials->uid);
    if (allowed && theirs.ok()) outbox = Outbox::make(uid, &memory);
    Connection* watch = nullptr;
    if (outbox) {
        watch = add(Connection::Kind::Bell, std::move(bell), EPOLLIN | EPOLLET, mBells.get());
    }
    if (!watch) {
        answer(connection, allowed ? -ENOMEM : -EPERM);
        return;
    }
    mBellCount++;
    watch->watch(process);
    mProcesses[process].connections.push_back(watch);
    process->outbox = std::move(outbox);
    std::vector<PassedDescriptor> descriptors;
    for (unique_fd* each : {&memory[0], &memory[1], &theirs})
        descriptors.emplace_back(each->release());
    send(connection, {}, std::move(descriptors));
}

}  // namespace binderhost::hub
