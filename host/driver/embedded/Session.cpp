// SPDX-License-Identifier: Apache-2.0
#include "embedded/Session.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "OwnPid.h"
#include "embedded/HubConnection.h"
#include "embedded/Socket.h"

namespace binderhost {
namespace {

constexpr uint32_t kCallsBeforeOutbox = 2;

uint64_t nextId() {
    static std::atomic<uint64_t> last{0};
    return ++last;
}

std::string unreachable(const std::string& path, int status) {
    const std::string elsewhere =
            ": start a hub with: binderhub --socket PATH, and set BINDER_DRIVER to that path";
    if (status == -EPROTO || status == -ETIMEDOUT) {
        return "what listens on " + path + " is not a binder hub of this version" + elsewhere;
    }
    if (status == -EPROTOTYPE) return path + " is a socket, but not a binder hub's" + elsewhere;
    return "no binder hub answers on " + path + " (" + std::strerror(-status) +
           "): start one with: binderhub --socket " + path;
}

}  // namespace

Session::Session(std::string path, unique_fd place, unique_fd process, const frame::Answer& answer)
      : mPath(std::move(path)),
        mPlace(std::move(place)),
        mToken(answer.token),
        mClaims((answer.header.flags & frame::kNeedsNoClaim) == 0),
        mPid(ownPid()),
        mId(nextId()),
        mProcess(std::move(process)) {}

std::shared_ptr<Session> Session::open(const std::string& path, std::string* error) {
    unique_fd place = findHub(path, error);
    if (!place.ok()) return nullptr;
    unique_fd process;
    frame::Answer answer;
    int status = connectTo(place.get(), kAnswerSeconds, &process);
    if (!status) {
        frame::Hello hello;
        hello.header.kind = frame::Kind::HelloProcess;
        status = ask(process.get(), hello, &answer);
    }
    if (!status) status = answer.status;
    if (status) {
        *error = unreachable(path, status);
        return nullptr;
    }
    return std::shared_ptr<Session>(
            new Session(path, std::move(place), std::move(process), answer));
}

int Session::joinThread(unique_fd* out) const {
    unique_fd socket;
    if (const int status = connectTo(mPlace.get(), kAnswerSeconds, &socket)) return status;
    frame::Hello hello;
    hello.header.kind = frame::Kind::HelloThread;
    hello.token = mToken;
    frame::Answer answer;
    if (const int status = ask(socket.get(), hello, &answer)) return status;
    if (answer.status) return answer.status;
    *out = std::move(socket);
    return 0;
}

int Session::control(frame::Kind kind, uint32_t value) {
    const std::lock_guard lock(mLock);
    if (!ours() || !mProcess.ok()) return -ECONNREFUSED;
    frame::Control request;
    request.header.kind = kind;
    request.value = value;
    frame::Answer answer;
    const int status = ask(mProcess.get(), request, &answer);
    return status ? status : answer.status;
}

Outbox* Session::outbox() {
    Outbox* opened = mOutbox.load();
    if (opened) return opened;
    if (++mOutboxCalls == kCallsBeforeOutbox) openOutbox();
    return mOutbox.load();
}

void Session::openOutbox() {
    const std::lock_guard lock(mLock);
    if (!ours() || !mProcess.ok()) return;
    frame::Control request;
    request.header.kind = frame::Kind::OpenOutbox;
    frame::Answer answer;
    std::vector<unique_fd> descriptors;
    // Without one every call asks the hub, which is slower and nothing else.
    if (ask(mProcess.get(), request, &answer, &descriptors) != 0 || answer.status != 0) return;
    mOwnOutbox = Outbox::open(std::move(descriptors));
    mOutbox = mOwnOutbox.get();
}

void Session::leave() {
    const std::lock_guard lock(mLock);
    mProcess.reset();
}

bool Session::ours() const {
    return ownPid() == mPid;
}

}  // namespace binderhost
