// SPDX-License-Identifier: Apache-2.0
// One JSON object per line, over a stream socket.
#include "process/LineChannel.h"

#include <errno.h>
#include <json/reader.h>
#include <json/writer.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>

namespace sim {
namespace {

constexpr size_t kReadSize = 16 * 1024;
// Deeper than any message of ours; the parser recurses once per level.
constexpr int kDeepestNesting = 16;

}  // namespace

int millisecondsUntil(std::optional<LineChannel::Deadline> deadline) {
    if (!deadline) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline -
                                                                   std::chrono::steady_clock::now())
                              .count();
    return static_cast<int>(std::clamp<long long>(left, 0, std::numeric_limits<int>::max()));
}

std::string toLine(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

std::optional<std::pair<LineChannel, LineChannel>> LineChannel::makePair() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return {};
    return std::make_pair(LineChannel(android::base::unique_fd(ends[0])),
                          LineChannel(android::base::unique_fd(ends[1])));
}

bool LineChannel::send(const Json::Value& object) {
    const std::string line = toLine(object) + "\n";
    size_t sent = 0;
    while (sent < line.size()) {
        const ssize_t size =
                ::send(mFd.get(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
        if (size < 0 && errno == EINTR) continue;
        if (size <= 0) return false;
        sent += static_cast<size_t>(size);
    }
    return true;
}

LineChannel::Read LineChannel::receive(Json::Value* out, std::optional<Deadline> deadline,
                                       int stopFd) {
    while (true) {
        if (mMalformed) return Read::Malformed;
        const size_t end = mInput.find('\n', mScanned);
        if (end != std::string::npos) {
            std::string line = mInput.substr(0, end);
            mInput.erase(0, end + 1);
            mScanned = 0;
            return takeLine(std::move(line), out);
        }
        mScanned = mInput.size();
        if (mInput.size() > kLongestLine) {
            mMalformed = true;
            continue;
        }
        if (const Read ready = waitForInput(deadline, stopFd); ready != Read::Message) return ready;
        std::array<char, kReadSize> chunk;
        const ssize_t size = recv(mFd.get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
        if (size < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (size <= 0) return Read::Closed;
        mInput.append(chunk.data(), static_cast<size_t>(size));
    }
}

LineChannel::Read LineChannel::takeLine(std::string line, Json::Value* out) {
    static const Json::CharReaderBuilder kBuilder = [] {
        Json::CharReaderBuilder builder;
        Json::CharReaderBuilder::strictMode(&builder.settings_);
        builder["stackLimit"] = kDeepestNesting;
        return builder;
    }();
    const std::unique_ptr<Json::CharReader> reader(kBuilder.newCharReader());
    try {
        Json::Value value;
        std::string problem;
        if (reader->parse(line.data(), line.data() + line.size(), &value, &problem) &&
            value.isObject()) {
            *out = std::move(value);
            return Read::Message;
        }
    } catch (const Json::Exception&) {
        // Nested too deeply: as little a line of ours as one that does not parse.
    }
    mMalformed = true;
    return Read::Malformed;
}

LineChannel::Read LineChannel::waitForInput(std::optional<Deadline> deadline, int stopFd) const {
    std::array<pollfd, 2> watched{pollfd{mFd.get(), POLLIN, 0}, pollfd{stopFd, POLLIN, 0}};
    while (true) {
        const int ready = poll(watched.data(), watched.size(), millisecondsUntil(deadline));
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0) return Read::Closed;
        if (watched[1].revents != 0) return Read::Stopped;
        return ready == 0 ? Read::TimedOut : Read::Message;
    }
}

}  // namespace sim
