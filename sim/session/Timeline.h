// SPDX-License-Identifier: Apache-2.0
//
// What a session prints for people, in colours where they can be seen.
#pragma once

#include <cstdio>
#include <string>

#include "session/StopSignals.h"

namespace sim {

class Timeline {
public:
    /**
     * Writes to a stream that outlives it, flushing after every line. With signals to stop, which
     * outlive it, too, a wish to stop is heard also while nobody reads: whatever writes then throws
     * SessionStopped.
     */
    Timeline(FILE* out, bool colours, StopSignals* stops = nullptr)
          : mOut(out), mColours(colours), mStops(stops) {}

    /** Colours when the stream is a terminal that knows them and NO_COLOR is unset. */
    [[nodiscard]] static bool wantsColours(FILE* out);

    /** Whether something could not be written, for another reason than a reader that has gone. */
    [[nodiscard]] bool isLost() const { return ferror(mOut) != 0; }
    void line(const std::string& text);
    /** A headline. */
    void title(const std::string& text);
    /** A comment below a line of a scenario. */
    void remark(const std::string& text);
    /** Something that did not go as it should, after which all goes on. */
    void complaint(const std::string& text);
    /** Goes to standard error. */
    void failure(const std::string& text);
    /** As it is, to standard error. */
    void error(const std::string& text);
    /** To standard error, unless nobody reads there now. */
    static void stopped(int signal);

private:
    void write(FILE* to, const std::string& text);
    [[nodiscard]] std::string styled(const char* style, const std::string& text) const;

    FILE* const mOut;
    const bool mColours;
    StopSignals* const mStops;
};

}  // namespace sim
