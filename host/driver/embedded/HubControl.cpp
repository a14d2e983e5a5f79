// SPDX-License-Identifier: Apache-2.0
#include "driver/HubControl.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "ForkGuard.h"
#include "embedded/ByteReader.h"
#include "embedded/ControlFrame.h"
#include "embedded/Socket.h"

namespace binderhost {
namespace {

using Clock = std::chrono::steady_clock;

/** What a hub answers at once, however busy it is. */
constexpr std::chrono::seconds kPatience(10);

/** Done when the socket is readable. */
HubControl::Status awaitReadable(int socket, int stop, Clock::time_point deadline) {
    using Status = HubControl::Status;
    while (true) {
        const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        std::array<pollfd, 2> watched{pollfd{socket, POLLIN, 0}, pollfd{stop, POLLIN, 0}};
        const int count =
                poll(watched.data(), watched.size(), left > 0 ? static_cast<int>(left) : 0);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return Status::NoHub;
        if (watched[1].revents != 0) return Status::Stopped;
        if (watched[0].revents != 0) return Status::Done;
        if (left <= 0) return Status::TimedOut;
    }
}

}  // namespace

const char* HubControl::describe(Status status) {
    switch (status) {
        case Status::Done:
            return "done";
        case Status::NotAChild:
            return "it is not a child of the launcher";
        case Status::OtherUser:
            return "it runs as another user than the hub";
        case Status::Gone:
            return "there is no such process";
        case Status::NoUid:
            return "nobody can have this uid";
        case Status::AlreadyAssigned:
            return "it has an assigned uid already";
        case Status::NotAssigned:
            return "it has no assigned uid";
        case Status::AlreadyConnected:
            return "it has opened the driver already";
        case Status::TooMany:
            return "too many processes, or the hub has no descriptors left";
        case Status::InFlight:
            return "something is in flight";
        case Status::NotWatching:
            return "it has not asked to be told of that process's end";
        case Status::Malformed:
            return "the hub does not know the request";
        case Status::Stopped:
            return "the wait was to end";
        case Status::TimedOut:
            return "the hub gave no answer in time";
        case Status::NoHub:
            return "the hub has gone";
    }
    return "the hub gives an answer that is not known";
}

HubControl::HubControl(android::base::unique_fd socket)
      : mSocket(std::move(socket)), mGuard(std::make_unique<ForkGuard>(&mSocket)) {}

HubControl::~HubControl() = default;

std::unique_ptr<HubControl> HubControl::make(android::base::unique_fd* hubsEnd,
                                             std::string* error) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        *error = std::string("socketpair: ") + std::strerror(errno);
        return nullptr;
    }
    android::base::unique_fd own(ends[0]);
    hubsEnd->reset(ends[1]);
    // Before anything is sent: the kernel says with each request who has sent it.
    const int on = 1;
    if (setsockopt(hubsEnd->get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) != 0) {
        *error = std::string("SO_PASSCRED: ") + std::strerror(errno);
        return nullptr;
    }
    return std::unique_ptr<HubControl>(new HubControl(std::move(own)));
}

HubControl::Status HubControl::awaitReady(Time timeout, int stop) {
    return receive(timeout, stop, static_cast<uint32_t>(control::Kind::Ready), nullptr);
}

HubControl::Status HubControl::assign(pid_t child, uid_t uid) {
    const Status sent = send(static_cast<uint32_t>(control::Kind::Assign), child, uid, {});
    if (sent != Status::Done) return sent;
    return receive(kPatience, -1, static_cast<uint32_t>(control::Kind::Answer), nullptr);
}

HubControl::Status HubControl::reassign(pid_t child, uid_t uid) {
    const Status sent = send(static_cast<uint32_t>(control::Kind::Reassign), child, uid, {});
    if (sent != Status::Done) return sent;
    return receive(kPatience, -1, static_cast<uint32_t>(control::Kind::Answer), nullptr);
}

HubControl::Status HubControl::askQuiet(std::span<const pid_t> leftOut, std::string* inFlight) {
    const Status sent = send(static_cast<uint32_t>(control::Kind::AskQuiet), 0, 0, leftOut);
    if (sent != Status::Done) return sent;
    return receive(kPatience, -1, static_cast<uint32_t>(control::Kind::Answer), inFlight);
}

HubControl::Status HubControl::awaitQuiet(std::span<const pid_t> leftOut, Time timeout,
                                          std::string* inFlight, int stop) {
    const Status sent = send(static_cast<uint32_t>(control::Kind::AwaitQuiet), 0, 0, leftOut);
    if (sent != Status::Done) return sent;
    const Status status =
            receive(timeout, stop, static_cast<uint32_t>(control::Kind::Answer), nullptr);
    if (status != Status::TimedOut) return status;
    // Drops the other question, and says why it was not answered.
    const Status now = askQuiet(leftOut, inFlight);
    return now == Status::InFlight ? Status::TimedOut : now;
}

HubControl::Status HubControl::askWatch(pid_t watcher, pid_t watched) {
    const Status sent =
            send(static_cast<uint32_t>(control::Kind::AskWatch), watcher, 0, {&watched, 1});
    if (sent != Status::Done) return sent;
    return receive(kPatience, -1, static_cast<uint32_t>(control::Kind::Answer), nullptr);
}

HubControl::Status HubControl::send(uint32_t kind, pid_t pid, uid_t uid,
                                    std::span<const pid_t> leftOut) {
    if (leftOut.size() > control::kMostPids) return Status::TooMany;
    control::Request request;
    request.kind = static_cast<control::Kind>(kind);
    request.id = ++mLastId;
    request.pid = pid;
    request.uid = uid;
    request.count = static_cast<uint32_t>(leftOut.size());
    const std::array<iovec, 2> parts{
            iovec{&request, sizeof(request)},
            iovec{const_cast<pid_t*>(leftOut.data()), leftOut.size_bytes()}};
    int status = 0;
    do {
        status = sendRecord(mSocket.get(), parts, {}, /*credentials=*/nullptr, /*flags=*/0);
    } while (status == -EINTR);
    return status == 0 ? Status::Done : Status::NoHub;
}

HubControl::Status HubControl::receive(Time timeout, int stop, uint32_t kind, std::string* text) {
    const auto deadline = Clock::now() + timeout;
    while (true) {
        const Status ready = awaitReadable(mSocket.get(), stop, deadline);
        if (ready != Status::Done) return ready;
        std::array<uint8_t, sizeof(control::Answer) + control::kMostText> room{};
        Received received;
        const int status = receiveRecord(mSocket.get(), room, MSG_DONTWAIT, &received);
        if (status == -EAGAIN || status == -EINTR) continue;
        if (status != 0 || received.size == 0) return Status::NoHub;
        ByteReader reader({room.data(), received.size});
        control::Answer answer;
        if (!reader.take(&answer) || answer.magic != control::kMagic) return Status::Malformed;
        // An answer to a question that was given up is nobody's.
        if (answer.kind != static_cast<control::Kind>(kind) || answer.id != mLastId) continue;
        if (text != nullptr) {
            text->assign(room.begin() + sizeof(answer),
                         room.begin() + static_cast<ptrdiff_t>(received.size));
        }
        return static_cast<Status>(answer.status);
    }
}

}  // namespace binderhost
