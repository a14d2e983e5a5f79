// SPDX-License-Identifier: Apache-2.0
//
// Event stream: the events in a sink's text, which comes in pieces of any size.
//
// Usage:
//
//      EventStream stream([](const Event& event) { ... });
//      stream.feed(piece);
//
// What is no event is skipped and counted: stumps of writers that found no room, foreign text.
// Holds one line at most. Threads: one at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "EventLine.h"

namespace hosttelemetry {

class EventStream {
public:
    explicit EventStream(std::function<void(const Event&)> onEvent);

    /** Calls back for each event whose line ends in this piece, in order. */
    void feed(std::string_view piece);

    /** The file was replaced or cut: nothing that is fed from now on continues the line. */
    void startAnew();

    /** Whether the text so far ends in the middle of a line. */
    [[nodiscard]] bool isInsideLine() const { return mState != State::kBetween; }

    /** Skipped pieces of text so far: broken lines, and text outside any line. */
    [[nodiscard]] size_t damaged() const { return mDamaged; }

private:
    enum class State { kBetween, kInLine, kInForeignText };

    void endLine();

    const std::function<void(const Event&)> mOnEvent;
    State mState = State::kBetween;
    /** The line so far; empty outside one. */
    std::string mLine;
    size_t mDamaged = 0;
};

}  // namespace hosttelemetry
