// SPDX-License-Identifier: Apache-2.0
// A child process with a control channel.
#include "session/DrivenProcess.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include "session/SessionError.h"
#include "world/Notice.h"

namespace sim {

Json::Value operation(const std::string& op) {
    Json::Value request(Json::objectValue);
    request["op"] = op;
    return request;
}

Json::Value DrivenProcess::request(Json::Value request, std::chrono::milliseconds timeout) {
    send(request);
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    const std::string op = stringMember(request, "op").value_or("");
    while (true) {
        Json::Value answer = next(deadline, "an answer to " + op);
        if (intMember(answer, "id") != mLastId) continue;
        if (const auto error = stringMember(answer, "error")) {
            throw SessionError(mName + ": " + *error);
        }
        return answer;
    }
}

void DrivenProcess::post(Json::Value request) {
    send(request);
}

bool DrivenProcess::tookAll() const {
    int unread = 0;
    return ioctl(mChannel.fd(), SIOCOUTQ, &unread) == 0 && unread == 0;
}

void DrivenProcess::awaitEvent(const std::string& name, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (stringMember(next(deadline, name), "event") != name) {
    }
}

Json::Value DrivenProcess::next(LineChannel::Deadline deadline, const std::string& awaited) {
    Json::Value message;
    switch (mChannel.receive(&message, deadline, mStops == nullptr ? -1 : mStops->fd())) {
        case LineChannel::Read::Message:
            return message;
        case LineChannel::Read::Stopped:
            throw SessionStopped(mStops->take());
        case LineChannel::Read::TimedOut:
            throw SessionError(mName + " gave no sign in time: awaited " + awaited);
        case LineChannel::Read::Malformed:
            throw SessionError(mName + " sent a line that is no JSON object");
        case LineChannel::Read::Closed:
            break;
    }
    // The descriptor closes a moment before the process can be reaped.
    mProcess->kill();
    throw SessionError(mName + " has ended (" + mProcess->ending() + "): awaited " + awaited);
}

void DrivenProcess::send(Json::Value& request) {
    request["id"] = ++mLastId;
    if (!mChannel.send(request)) {
        mProcess->kill();
        throw SessionError(mName + " has ended (" + mProcess->ending() + ")");
    }
}

}  // namespace sim
