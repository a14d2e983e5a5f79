// SPDX-License-Identifier: Apache-2.0
//
// One JSON object per line.
//
// The session's controller drives every simulated service and app over a socket pair of its own:
//
//      controller  ── {"id":7,"op":"setAppState","pid":4321,"state":0}\n ──▶  app
//                  ◀── {"id":7,"exception":0}\n ──
//
// Owns its descriptor. One thread at a time. A line is at most kLongestLine bytes; a longer one,
// or one that is no JSON object, makes the channel unusable (Malformed from then on).
#pragma once

#include <android-base/unique_fd.h>
#include <json/value.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>

namespace sim {

class LineChannel {
public:
    using Deadline = std::chrono::steady_clock::time_point;
    static constexpr size_t kLongestLine = 1 << 20;

    enum class Read {
        Message,    // out holds an object
        TimedOut,   // nothing complete arrived before the deadline; the channel stays usable
        Closed,     // the other side is gone
        Malformed,  // what arrived is no line of ours
        Stopped,    // the stop descriptor became readable first
    };

    explicit LineChannel(android::base::unique_fd fd) : mFd(std::move(fd)) {}

    /** Two connected ends, both close-on-exec; absent when the system has no descriptors left. */
    [[nodiscard]] static std::optional<std::pair<LineChannel, LineChannel>> makePair();

    /** False when the other side is gone. Never raises SIGPIPE. */
    [[nodiscard]] bool send(const Json::Value& object);

    /**
     * Waits for the next object. deadline absent: for ever. stopFd: a descriptor that ends the
     * wait when it is readable (-1: none); it is not read from.
     */
    [[nodiscard]] Read receive(Json::Value* out, std::optional<Deadline> deadline = {},
                               int stopFd = -1);

    [[nodiscard]] int fd() const { return mFd.get(); }

private:
    [[nodiscard]] Read takeLine(std::string line, Json::Value* out);
    [[nodiscard]] Read waitForInput(std::optional<Deadline> deadline, int stopFd) const;

    android::base::unique_fd mFd;
    std::string mInput;
    size_t mScanned = 0;  // bytes of mInput known to hold no line end
    bool mMalformed = false;
};

/** Milliseconds until a deadline for poll(): rounded up, 0 when past, -1 when there is none. */
[[nodiscard]] int millisecondsUntil(std::optional<LineChannel::Deadline> deadline);

/** A value as one line without its end. */
[[nodiscard]] std::string toLine(const Json::Value& value);

}  // namespace sim
