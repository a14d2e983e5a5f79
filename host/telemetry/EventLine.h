// SPDX-License-Identifier: Apache-2.0
//
// Event line: the form of one event in the sink.
//
//      @1700000000042000 120828 4 0a026869
//       time, us since 1970  id  size, bytes in hexadecimal
//
// Why text in lines: writers append without a lock, and one that runs out of disk leaves the
// beginning of a line. Since '@' and the line's end occur nowhere else, a reader knows such a stump
// by the next '@' and loses nothing of what follows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace hosttelemetry {

struct Event {
    /** Microseconds since 1970, as the system's clock stood when it was reported. */
    int64_t timeUs = 0;
    int32_t id = 0;
    std::string bytes;

    bool operator==(const Event&) const = default;
};

/** More than any event made of a binder call's strings; bounds what a reader must hold. */
inline constexpr size_t kMaxEventBytes = 1024 * 1024;

/** Of a line with its end: two digits a byte, and the three numbers. */
inline constexpr size_t kMaxLineBytes = 2 * kMaxEventBytes + 64;

inline constexpr char kLineStart = '@';
inline constexpr char kLineEnd = '\n';

/** `bytes` as lower-case hexadecimal digits. */
[[nodiscard]] std::string toHex(std::string_view bytes);

/** The whole line, its end included. */
[[nodiscard]] std::string formatEventLine(int64_t timeUs, int32_t id, std::string_view bytes);

/** The event of a line without its end; empty for anything that formatEventLine does not write. */
[[nodiscard]] std::optional<Event> parseEventLine(std::string_view line);

}  // namespace hosttelemetry
