// SPDX-License-Identifier: Apache-2.0
#include "embedded/EmbeddedDriver.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <vector>

#include "embedded/Channel.h"

namespace binderhost {
namespace {

/** The calling thread's channels, one for each driver it has used. */
struct OwnChannels {
    struct Entry {
        uint64_t session;
        std::unique_ptr<Channel> channel;
    };
    std::vector<Entry> entries;

    [[nodiscard]] Channel* find(uint64_t session) const {
        for (const Entry& entry : entries) {
            if (entry.session == session) return entry.channel.get();
        }
        return nullptr;
    }
    void drop(uint64_t session) {
        std::erase_if(entries, [session](const Entry& each) { return each.session == session; });
    }
};

thread_local OwnChannels tChannels;

/** The thread's channel, made if needed. 0 or a negative errno. */
int channelOf(const std::shared_ptr<Session>& session, Channel** out) {
    *out = tChannels.find(session->id());
    if (*out) return 0;
    unique_fd socket;
    if (const int status = session->joinThread(&socket)) return status;
    tChannels.entries.push_back(
            {session->id(), std::make_unique<Channel>(session, std::move(socket))});
    *out = tChannels.entries.back().channel.get();
    return 0;
}

}  // namespace

std::unique_ptr<Driver> EmbeddedDriver::open(const std::string& path, std::string* error) {
    std::shared_ptr<Session> session = Session::open(path, error);
    if (!session) return nullptr;
    return std::unique_ptr<Driver>(new EmbeddedDriver(std::move(session)));
}

EmbeddedDriver::EmbeddedDriver(std::shared_ptr<Session> session) : mSession(std::move(session)) {}

EmbeddedDriver::~EmbeddedDriver() {
    tChannels.drop(mSession->id());
    mSession->leave();
}

int EmbeddedDriver::writeRead(binder_write_read* bwr) {
    if (!mSession->ours()) {
        std::fprintf(stderr, "binder: a forked child must open a driver of its own\n");
        return -ECONNREFUSED;
    }
    Channel* channel = nullptr;
    if (const int status = channelOf(mSession, &channel)) return status;
    return channel->writeRead(bwr);
}

int EmbeddedDriver::becomeContextManager() {
    return mSession->control(frame::Kind::BecomeContextManager, 0);
}

int EmbeddedDriver::setMaxThreads(uint32_t count) {
    return mSession->control(frame::Kind::SetMaxThreads, count);
}

int EmbeddedDriver::enableOnewaySpamDetection(bool enable) {
    return mSession->control(frame::Kind::OnewaySpamDetection, enable ? 1 : 0);
}

void EmbeddedDriver::exitThread() {
    tChannels.drop(mSession->id());
}

std::string EmbeddedDriver::describe() const {
    return "hub at " + mSession->path();
}

}  // namespace binderhost
