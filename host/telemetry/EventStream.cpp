// SPDX-License-Identifier: Apache-2.0
//
// Event stream.
#include "EventStream.h"

#include <algorithm>
#include <utility>

namespace hosttelemetry {

EventStream::EventStream(std::function<void(const Event&)> onEvent)
      : mOnEvent(std::move(onEvent)) {}

void EventStream::feed(std::string_view piece) {
    constexpr char kMarks[] = {kLineStart, kLineEnd, '\0'};
    while (!piece.empty()) {
        if (piece[0] == kLineEnd) {
            endLine();
            piece.remove_prefix(1);
            continue;
        }
        if (piece[0] == kLineStart) {
            startAnew();
            mState = State::kInLine;
        } else if (mState == State::kBetween) {
            mState = State::kInForeignText;
        }
        const size_t length = std::min(piece.find_first_of(kMarks, 1), piece.size());
        if (mState == State::kInLine) {
            mLine += piece.substr(0, length);
            if (mLine.size() > kMaxLineBytes) {
                mLine.clear();
                mState = State::kInForeignText;
            }
        }
        piece.remove_prefix(length);
    }
}

void EventStream::startAnew() {
    if (isInsideLine()) ++mDamaged;
    mLine.clear();
    mState = State::kBetween;
}

void EventStream::endLine() {
    const State ended = std::exchange(mState, State::kBetween);
    const std::string line = std::exchange(mLine, {});
    if (ended == State::kBetween) return;
    const auto event = ended == State::kInLine ? parseEventLine(line) : std::nullopt;
    if (!event) {
        ++mDamaged;
        return;
    }
    mOnEvent(*event);
}

}  // namespace hosttelemetry
