// SPDX-License-Identifier: Apache-2.0
#include "hub/Server.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "driver/AssignedUids.h"
#include "hub/Report.h"

namespace binderhost::hub {

using android::base::unique_fd;

Server::Server(unique_fd listener, unique_fd stop, const Limits& limits)
      : mHub(limits),
        mLimits(limits),
        mEpoll(epoll_create1(EPOLL_CLOEXEC)),
        mBells(epoll_create1(EPOLL_CLOEXEC)),
        mReserve(open("/dev/null", O_RDONLY | O_CLOEXEC)),
        mRoom(frame::kMaxBytes) {
    mListener = add(Connection::Kind::Listener, std::move(listener), EPOLLIN);
    add(Connection::Kind::Signal, std::move(stop), EPOLLIN);
    add(Connection::Kind::Bells, unique_fd(fcntl(mBells.get(), F_DUPFD_CLOEXEC, 0)), EPOLLIN);
    mOwnConnections = mConnections.size();
}

int Server::run() {
    while (!mStopping) {
        mEvents.resize(mConnections.size() + 1);
        // Letters that were written during the last round are not waited for.
        const bool asked = mQuestion && mUnjudged;
        const int count = epoll_wait(mEpoll.get(), mEvents.data(), static_cast<int>(mEvents.size()),
                                     mOutboxes.pending() || asked ? 0 : -1);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return -errno;
        const bool complete = count == 0 && !mOutboxes.pending();
        round(static_cast<size_t>(count));
        if (asked) judgeQuiet(complete);
        mUnjudged = !complete;
        mClosed.clear();
        giveBackMemory();
    }
    return 0;
}

void Server::round(size_t count) {
    using Kind = Connection::Kind;
    constexpr uint32_t kGone = EPOLLHUP | EPOLLERR | EPOLLRDHUP;
    const std::span<const epoll_event> events(mEvents.data(), count);
    auto each = [&events](auto&& act) {
        for (const epoll_event& event : events) {
            auto* connection = static_cast<Connection*>(event.data.ptr);
            if (connection->open()) act(connection, event.events);
        }
    };
    takeLetters();
    each([this](Connection* connection, uint32_t what) {
        const bool gone = connection->kind() == Kind::Process && (what & kGone);
        if (gone || connection->kind() == Kind::ProcessExit) endProcess(connection->process());
        if (connection->kind() == Kind::AssignedExit) endAssigned(connection);
    });
    each([this](Connection* connection, uint32_t what) {
        if (connection->kind() == Kind::Thread && (what & kGone)) endThread(connection);
    });
    each([this](Connection* connection, uint32_t what) {
        if (connection->kind() == Kind::Signal) mStopping = true;
        const bool talks = connection->kind() == Kind::Stranger || connection->process() ||
                           connection->kind() == Kind::Control;
        if (!talks || connection->kind() == Kind::ProcessExit) return;
        if (what & EPOLLIN) {
            readFrame(connection);
        } else if (what & kGone) {
            closeConnection(connection);
        }
    });
    each([this](Connection* connection, uint32_t) {
        if (connection->kind() == Kind::Listener) acceptAll(connection->descriptor());
    });
    cutOffStuffed();
}

Connection* Server::add(Connection::Kind kind, unique_fd descriptor, uint32_t events) {
    return add(kind, std::move(descriptor), events, mEpoll.get());
}

Connection* Server::add(Connection::Kind kind, unique_fd descriptor, uint32_t events, int epoll) {
    auto made = std::make_unique<Connection>(kind, std::move(descriptor), &mStuffed);
    Connection* connection = made.get();
    epoll_event event{};
    event.events = events;
    event.data.ptr = connection;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, connection->descriptor(), &event)) {
        report("cannot watch a connection: %s", std::strerror(errno));
        return nullptr;
    }
    mConnections.emplace(connection, std::move(made));
    return connection;
}

void Server::acceptAll(int listener) {
    // No more at once than a moment's worth: those who come must not starve those who are there.
    for (int i = 0; i < kAcceptedAtOnce; i++) {
        unique_fd descriptor(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!descriptor.ok()) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno == EMFILE || errno == ENFILE) refuseForLackOfDescriptors(listener);
            return;
        }
        if (mConnections.size() >= mLimits.connections) {
            tellOfRefusals("as many connections as there may be");
            continue;
        }
        if (mConnections.size() < mRefusedAt / 2) mRefusedAt = 0;
        const int on = 1;
        if (setsockopt(descriptor.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on))) continue;
        Connection* stranger =
                add(Connection::Kind::Stranger, std::move(descriptor), EPOLLIN | EPOLLRDHUP);
        if (!stranger) continue;
        mStrangers.push_back(stranger);
        if (mStrangers.size() > mLimits.strangers) {
            cutOff(mStrangers.front(), "too many connections that do not say who they are");
        }
    }
}

void Server::tellOfRefusals(const char* reason) {
    if (mRefusedAt == 0) {
        report("%s: connections are refused", reason);
    }
    mRefusedAt = mConnections.size();
}

void Server::refuseForLackOfDescriptors(int listener) {
    // A connection that is not taken would wake the hub again at once and for ever.
    tellOfRefusals("no descriptor left");
    mReserve.reset();
    unique_fd refused(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    refused.reset();
    mReserve.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

int Server::receive(const Connection& connection) {
    const int status = receiveRecord(connection.descriptor(), mRoom, MSG_DONTWAIT, &mReceived);
    for (unique_fd& each : mReceived.descriptors)
        mDescriptors.emplace_back(each.release());
    mReceived.descriptors.clear();
    return status;
}

void Server::readFrame(Connection* connection) {
    int status = receive(*connection);
    // The error stands before the data that the other side has left.
    if (status == -ECONNRESET) status = receive(*connection);
    if (status == -EAGAIN || status == -EINTR) return;
    if (status != 0 || mReceived.size == 0) {
        closeConnection(connection);
        return;
    }
    if (connection->kind() == Connection::Kind::Control) {
        handleControl({mRoom.data(), mReceived.size});
    } else {
        handleFrame(connection, {mRoom.data(), mReceived.size});
    }
    mDescriptors.clear();
}

void Server::handleFrame(Connection* connection, std::span<const uint8_t> bytes) {
    frame::Header header;
    ByteReader reader(bytes);
    if (mReceived.cut || !reader.take(&header) || header.magic != frame::kMagic) {
        cutOff(connection, "not a frame");
        return;
    }
    if (connection->kind() == Connection::Kind::Stranger) {
        greet(connection, header, bytes);
        return;
    }
    const auto uid = connection->process()->identity.attest(mReceived.credentials);
    if (!uid) {
        cutOff(connection, "a frame from another process");
    } else if (connection->kind() == Connection::Kind::Thread) {
        commands(connection, header, *uid, bytes.subspan(sizeof(header)));
    } else {
        control(connection, header, *uid, bytes);
    }
}

void Server::commands(Connection* connection, const frame::Header& header, uid_t uid,
                      std::span<const uint8_t> bytes) {
    if (header.kind == frame::Kind::CancelRead) {
        mHub.cancelRead(connection->thread());
        return;
    }
    FrameDescriptors descriptors{std::exchange(mDescriptors, {}), /*used=*/0,
                                 mReceived.descriptorsLost};
    const bool counted = descriptors.lost || header.descriptors == descriptors.all.size();
    if (header.kind != frame::Kind::Commands || !counted ||
        !mHub.handle(connection->thread(), header.flags, uid, bytes, &descriptors)) {
        cutOff(connection, "a malformed frame, or more than a process may have");
    }
}

void Server::control(Connection* connection, const frame::Header& header, uid_t uid,
                     std::span<const uint8_t> bytes) {
    frame::Control request;
    if (!ByteReader(bytes).take(&request)) {
        cutOff(connection, "a request cut short");
        return;
    }
    int status = 0;
    switch (header.kind) {
        case frame::Kind::BecomeContextManager:
            status = mHub.becomeContextManager(connection->process(), uid);
            break;
        case frame::Kind::SetMaxThreads:
            mHub.setMaxThreads(connection->process(), request.value);
            break;
        case frame::Kind::OnewaySpamDetection:
            mHub.detectSpam(connection->process(), request.value != 0);
            break;
        case frame::Kind::OpenOutbox:
            openOutbox(connection, uid);
            return;
        default:
            cutOff(connection, "an unknown request");
            return;
    }
    answer(connection, status);
}

void Server::greet(Connection* connection, const frame::Header& header,
                   std::span<const uint8_t> bytes) {
    if (header.kind == frame::Kind::Stats) {
        answerStats(connection);
        return;
    }
    if (header.kind == frame::Kind::AssignedUids) {
        shareUids(connection);
        return;
    }
    frame::Hello hello;
    if (!ByteReader(bytes).take(&hello) || hello.version != frame::kVersion) {
        cutOff(connection, "not a greeting of this version");
        return;
    }
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(connection->descriptor(), SOL_SOCKET, SO_PEERCRED, &peer, &size) ||
        !mReceived.credentials || mReceived.credentials->pid != peer.pid) {
        cutOff(connection, "a greeting through another process's connection");
        return;
    }
    if (header.kind == frame::Kind::HelloProcess) {
        openProcess(connection);
    } else if (header.kind == frame::Kind::HelloThread) {
        openThread(connection, hello.token);
    } else {
        cutOff(connection, "not a greeting");
    }
}

void Server::openProcess(Connection* connection) {
    const pid_t pid = mReceived.credentials->pid;
    // A child that inherited the connection would keep it open past its parent's end.
    unique_fd exit(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    std::optional<uid_t> given;
    if (mAssignments) given = mAssignments->uidOf(pid).value_or(AssignedUids::kOthersUid);
    Process* process = mHub.openProcess(Identity(pid, given));
    mStrangers.remove(connection);
    connection->becomeProcess(process);
    ProcessEntry& entry = mProcesses[process];
    entry.connections.push_back(connection);
    if (getrandom(entry.token.data(), entry.token.size(), 0) !=
        static_cast<ssize_t>(entry.token.size())) {
        std::fprintf(stderr, "binderhub: no random numbers: %m\n");
        std::abort();
    }
    if (exit.ok()) {
        if (Connection* watch = add(Connection::Kind::ProcessExit, std::move(exit), EPOLLIN)) {
            watch->watch(process);
            entry.connections.push_back(watch);
        }
    }
    frame::Answer welcome;
    welcome.token = entry.token;
    if (process->identity.cannotChange(mReceived.credentials->uid)) {
        welcome.header.flags = frame::kNeedsNoClaim;
    }
    send(connection, welcome);
}

void Server::openThread(Connection* connection, const frame::Token& token) {
    const pid_t pid = mReceived.credentials->pid;
    auto at = std::find_if(mProcesses.begin(), mProcesses.end(), [&](const auto& entry) {
        return entry.first->identity.pid() == pid && entry.second.token == token;
    });
    if (at == mProcesses.end()) {
        cutOff(connection, "a thread of no known process");
        return;
    }
    Thread* thread = mHub.openThread(at->first, connection);
    if (!thread) {
        answer(connection, -EAGAIN);
        return;
    }
    mStrangers.remove(connection);
    connection->becomeThread(at->first, thread);
    at->second.connections.push_back(connection);
    answer(connection, 0);
}

void Server::answer(Connection* connection, int status) {
    frame::Answer reply;
    reply.status = status;
    send(connection, reply);
}

void Server::send(Connection* connection, const frame::Answer& answer,
                  std::vector<PassedDescriptor> descriptors) {
    frame::Answer complete = answer;
    complete.header.kind = frame::Kind::Answer;
    complete.header.descriptors = static_cast<uint32_t>(descriptors.size());
    Record record;
    appendBytes(&record.head, complete);
    record.descriptors = std::move(descriptors);
    if (!connection->send(record)) this->answer(connection, -ETOOMANYREFS);
}

void Server::answerStats(Connection* connection) {
    Record record;
    appendBytes(&record.head, frame::Header{.kind = frame::Kind::Answer});
    const std::string text =
            mHub.stats() + "connections=" + std::to_string(mConnections.size() - mOwnConnections) +
            "\n";
    record.payload.assign(text.begin(), text.end());
    (void)connection->send(record);  // has no descriptors
}

void Server::drain(Connection* connection) {
    // Its other threads may live and write on for ever.
    shutdown(connection->descriptor(), SHUT_RD);
    bool reset = false;
    while (connection->open()) {
        const int status = receive(*connection);
        if (status == -EINTR) continue;
        if (status == -ECONNRESET && !reset) {
            reset = true;  // said once, before the data that are left
            continue;
        }
        if (status != 0 || mReceived.size == 0) return;
        handleFrame(connection, {mRoom.data(), mReceived.size});
        mDescriptors.clear();
    }
}

void Server::endProcess(Process* process) {
    mOutboxes.rung(process);
    takeLetters();
    // Its letters or a frame that is drained may themselves end the process.
    const auto at = mProcesses.find(process);
    if (at == mProcesses.end()) return;
    const std::vector<Connection*> connections = at->second.connections;
    for (Connection* connection : connections) {
        if (connection->kind() == Connection::Kind::Thread) drain(connection);
    }
    closeProcess(process);
}

void Server::closeProcess(Process* process) {
    auto at = mProcesses.find(process);
    if (at == mProcesses.end()) return;
    const std::vector<Connection*> closing = std::move(at->second.connections);
    mProcesses.erase(at);
    mOutboxes.forget(process);
    // Before others learn of the end: who then asks for the pid's uid is told the new one.
    const pid_t pid = process->identity.pid();
    const bool last = std::none_of(mProcesses.begin(), mProcesses.end(), [pid](const auto& each) {
        return each.first->identity.pid() == pid;
    });
    if (mAssignments && last) mAssignments->disconnected(pid);
    mHub.closeProcess(process);
    for (Connection* connection : closing) {
        // The process has the bell as well: closing it here does not end its events.
        if (connection->kind() == Connection::Kind::Bell) {
            epoll_ctl(mBells.get(), EPOLL_CTL_DEL, connection->descriptor(), nullptr);
            mBellCount--;
        }
        connection->close();
        closeConnection(connection);
    }
}

void Server::endThread(Connection* connection) {
    drain(connection);
    if (!connection->open()) return;
    mHub.closeThread(connection->thread());
    auto& siblings = mProcesses[connection->process()].connections;
    std::erase(siblings, connection);
    connection->close();
    closeConnection(connection);
}

void Server::cutOff(Connection* connection, const char* reason) {
    Process* process = connection->process();
    if (!process) {
        report("cut off a connection: %s", reason);
        closeConnection(connection);
        return;
    }
    report("cut off process %d: %s", process->identity.pid(), reason);
    closeProcess(process);
}

void Server::closeConnection(Connection* connection) {
    if (connection->process() && connection->kind() == Connection::Kind::Process) {
        endProcess(connection->process());
        return;
    }
    if (connection->thread()) {
        endThread(connection);
        return;
    }
    if (connection->kind() == Connection::Kind::Stranger) mStrangers.remove(connection);
    if (connection == mControl) {
        mControl = nullptr;
        mQuestion.reset();
        mOwnConnections--;
    }
    connection->close();
    auto at = mConnections.find(connection);
    if (at == mConnections.end()) return;
    mClosed.push_back(std::move(at->second));
    mConnections.erase(at);
}

void Server::giveBackMemory() {
    constexpr size_t kMany = 1024;
    mMostConnections = std::max(mMostConnections, mConnections.size());
    if (mMostConnections < kMany || mConnections.size() > mMostConnections / 8) return;
    mMostConnections = mConnections.size();
    malloc_trim(/*pad=*/0);
}

void Server::cutOffStuffed() {
    while (!mStuffed.empty()) {
        Connection* connection = mStuffed.back();
        mStuffed.pop_back();
        if (connection->open()) cutOff(connection, "does not read what it asked for");
    }
}

}  // namespace binderhost::hub
