// SPDX-License-Identifier: Apache-2.0
//
// The control connection, and what it can have done. Part of Server.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "hub/Quiet.h"
#include "hub/Report.h"
#include "hub/Server.h"

namespace binderhost::hub {

using android::base::unique_fd;

namespace {

/** Who made the socket's other end, or connected it. Pid 0: nobody that can be told. */
ucred peerOf(int socket) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return {};
    return peer;
}

bool hasHungUp(int socket) {
    pollfd look{socket, POLLRDHUP, 0};
    return poll(&look, 1, 0) > 0;
}

bool isReadable(int socket) {
    pollfd look{socket, POLLIN, 0};
    return poll(&look, 1, 0) > 0;
}

/** Of one that asks and does not wait: somebody may never leave the hub without anything to read.
 */
constexpr int kMostLooks = 64;

}  // namespace

int Server::obey(unique_fd control) {
    int type = 0;
    socklen_t size = sizeof(type);
    if (getsockopt(control.get(), SOL_SOCKET, SO_TYPE, &type, &size)) return -errno;
    const int on = 1;
    if (type != SOCK_SEQPACKET) return -EPROTOTYPE;
    if (setsockopt(control.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on))) return -errno;
    const ucred peer = peerOf(control.get());
    if (peer.pid <= 0 || peer.uid != geteuid()) return -EPERM;
    mAssignments = Assignments::make(peer.pid, getuid());
    if (!mAssignments) return -ENOMEM;
    mLauncher = peer.pid;
    mControl = add(Connection::Kind::Control, std::move(control), EPOLLIN | EPOLLRDHUP);
    if (!mControl) return -ENOMEM;
    mOwnConnections++;
    Record ready;
    appendBytes(&ready.head, control::Answer{.kind = control::Kind::Ready});
    (void)mControl->send(ready);  // has no descriptors
    return 0;
}

void Server::handleControl(std::span<const uint8_t> bytes) {
    // Anybody who inherited the socket could write to it, but for this.
    if (!mReceived.credentials || mReceived.credentials->pid != mLauncher) {
        report("a request on the control connection that is not its maker's");
        return;
    }
    using Status = HubControl::Status;
    control::Request request;
    ByteReader reader(bytes);
    if (mReceived.cut || !reader.take(&request) || request.magic != control::kMagic ||
        request.count > control::kMostPids || reader.left() != request.count * sizeof(pid_t)) {
        answerControl(request.id, Status::Malformed);
        return;
    }
    switch (request.kind) {
        case control::Kind::Assign:
            answerControl(request.id, assign(request));
            return;
        case control::Kind::Reassign:
            answerControl(request.id, mAssignments->reassign(request.pid, request.uid,
                                                             isConnected(request.pid)));
            return;
        case control::Kind::AskQuiet:
        case control::Kind::AwaitQuiet: {
            mQuestion = {request.id, {}, request.kind == control::Kind::AwaitQuiet, /*looks=*/0};
            for (pid_t pid = 0; reader.take(&pid);)
                mQuestion->leftOut.insert(pid);
            mUnjudged = true;
            return;
        }
        case control::Kind::AskWatch: {
            pid_t watched = 0;
            const bool watches = reader.take(&watched) && mHub.hasDeathLink(request.pid, watched);
            answerControl(request.id, watches ? Status::Done : Status::NotWatching);
            return;
        }
        default:
            answerControl(request.id, Status::Malformed);
            return;
    }
}

HubControl::Status Server::assign(const control::Request& request) {
    const HubControl::Status status = mAssignments->assign(
            request.pid, request.uid, isConnected(request.pid) || hasStranger(request.pid));
    if (status != HubControl::Status::Done) return status;
    unique_fd end = mAssignments->endOf(request.pid);
    Connection* watch =
            end.ok() ? add(Connection::Kind::AssignedExit, std::move(end), EPOLLIN) : nullptr;
    if (watch) {
        watch->watch(request.pid);
    } else {
        // Forgotten when the pid is asked for again, and not before.
        report("cannot watch process %d, which has an assigned uid", request.pid);
    }
    return status;
}

void Server::endAssigned(Connection* watch) {
    // The assignment has the descriptor as well: closing it here does not end its events.
    epoll_ctl(mEpoll.get(), EPOLL_CTL_DEL, watch->descriptor(), nullptr);
    mAssignments->ended(watch->watchedPid());
    closeConnection(watch);
}

bool Server::hasStranger(pid_t pid) {
    // Whoever has connected by now stands in a queue of at most this many.
    for (int taken = 0; taken < SOMAXCONN && isReadable(mListener->descriptor());
         taken += kAcceptedAtOnce) {
        acceptAll(mListener->descriptor());
    }
    for (Connection* stranger : std::vector(mStrangers.begin(), mStrangers.end())) {
        if (peerOf(stranger->descriptor()).pid != pid) continue;
        if (!hasHungUp(stranger->descriptor())) return true;
        closeConnection(stranger);
    }
    return false;
}

bool Server::isConnected(pid_t pid) {
    const auto gone = [this](Connection* connection) {
        if (connection->open() && !hasHungUp(connection->descriptor())) return false;
        closeConnection(connection);
        return true;
    };
    std::vector<Connection*> own;
    for (const auto& [process, entry] : mProcesses) {
        if (process->identity.pid() == pid) own.push_back(entry.connections.front());
    }
    return !std::all_of(own.begin(), own.end(), gone);
}

void Server::answerControl(uint64_t id, HubControl::Status status, std::string_view text) {
    if (!mControl) return;
    Record record;
    appendBytes(&record.head, control::Answer{.id = id, .status = static_cast<uint32_t>(status)});
    text = text.substr(0, control::kMostText);
    record.head.insert(record.head.end(), text.begin(), text.end());
    (void)mControl->send(record);  // has no descriptors
}

void Server::judgeQuiet(bool complete) {
    if (!mQuestion) return;
    if (!complete && (mQuestion->waits || ++mQuestion->looks < kMostLooks)) return;
    const std::optional<std::string> what = inFlight(mHub, mQuestion->leftOut);
    if (!what && complete) {
        answerControl(mQuestion->id, HubControl::Status::Done);
    } else if (mQuestion->waits) {
        return;
    } else {
        answerControl(mQuestion->id, HubControl::Status::InFlight,
                      what.value_or("messages arrive at the hub"));
    }
    mQuestion.reset();
}

void Server::shareUids(Connection* connection) {
    unique_fd file = mAssignments ? mAssignments->table().share() : unique_fd();
    if (!file.ok()) {
        answer(connection, mAssignments ? -EMFILE : -ENOENT);
        return;
    }
    std::vector<PassedDescriptor> descriptors;
    descriptors.emplace_back(file.release());
    send(connection, {}, std::move(descriptors));
}

}  // namespace binderhost::hub
