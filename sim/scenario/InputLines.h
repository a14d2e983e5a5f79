// SPDX-License-Identifier: Apache-2.0
//
// Lines from a program or a file, of any length and content. Of a line that is longer than a
// scenario's may be no more is kept than shows that it is.
#pragma once

#include <optional>
#include <string>

#include "scenario/News.h"
#include "session/StopSignals.h"

namespace sim::scenario {

class InputLines {
public:
    /**
     * The descriptors stay the caller's; the signals outlive this object. readerFd: where the
     * answers go to.
     */
    InputLines(int fd, int readerFd, StopSignals& stops)
          : mFd(fd), mReaderFd(readerFd), mStops(stops) {}

    /**
     * The next line without its end; absent when there is none. News that comes first is told.
     * SessionStopped when told to stop, or when nobody is left who would read the answer.
     */
    [[nodiscard]] std::optional<std::string> next(const News& news);

private:
    void await(const News& news);
    void readMore();

    const int mFd;
    const int mReaderFd;
    StopSignals& mStops;
    std::string mBytes;    // read and not handed out yet
    size_t mTaken = 0;     // of them, handed out
    bool mIsFirst = true;  // whether the next line is
    bool mEnded = false;
};

}  // namespace sim::scenario
