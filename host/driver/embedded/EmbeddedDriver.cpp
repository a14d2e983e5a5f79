// SPDX-License-Identifier: Apache-2.0
#include "embedded/EmbeddedDriver.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
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

/**
 * The calling thread's own. Behind a thread key and not a thread_local object: the runtime still
 * hands over commands while the thread's data is being destroyed, which is after the destruction
 * of thread_local objects. One that is made again then is destroyed in the next round.
 */
OwnChannels& ownChannels() {
    static const pthread_key_t key = [] {
        pthread_key_t made{};
        const auto destroy = [](void* channels) { delete static_cast<OwnChannels*>(channels); };
        if (pthread_key_create(&made, destroy) != 0) {
            std::fprintf(stderr, "binder: no key for thread data\n");
            std::abort();
        }
        return made;
    }();
    auto* channels = static_cast<OwnChannels*>(pthread_getspecific(key));
    if (channels == nullptr) {
        channels = new OwnChannels();
        pthread_setspecific(key, channels);
    }
    return *channels;
}

/** The thread's channel, made if needed. 0 or a negative errno. */
int channelOf(const std::shared_ptr<Session>& session, Channel** out) {
    OwnChannels& own = ownChannels();
    *out = own.find(session->id());
    if (*out) return 0;
    unique_fd socket;
    if (const int status = session->joinThread(&socket)) return status;
    own.entries.push_back({session->id(), std::make_unique<Channel>(session, std::move(socket))});
    *out = own.entries.back().channel.get();
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
    ownChannels().drop(mSession->id());
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
    ownChannels().drop(mSession->id());
}

std::string EmbeddedDriver::describe() const {
    return "hub at " + mSession->path();
}

}  // namespace binderhost
