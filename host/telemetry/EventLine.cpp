// SPDX-License-Identifier: Apache-2.0
//
// Event line, written and read.
#include "EventLine.h"

#include <charconv>
#include <system_error>

namespace hosttelemetry {

namespace {

constexpr char kDigits[] = "0123456789abcdef";

/** Takes a number and the blank behind it off the front of `text`. */
template <typename Number>
bool takeNumber(std::string_view& text, Number* out) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *out);
    if (error != std::errc()) return false;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    if (!text.starts_with(' ')) return false;
    text.remove_prefix(1);
    return true;
}

/** 0 to 15, or -1 for a character that toHex does not write. */
int digitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

}  // namespace

std::string toHex(std::string_view bytes) {
    std::string hex;
    hex.reserve(2 * bytes.size());
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 15];
    }
    return hex;
}

std::string formatEventLine(int64_t timeUs, int32_t id, std::string_view bytes) {
    return kLineStart + std::to_string(timeUs) + ' ' + std::to_string(id) + ' ' +
           std::to_string(bytes.size()) + ' ' + toHex(bytes) + kLineEnd;
}

std::optional<Event> parseEventLine(std::string_view line) {
    Event event;
    size_t size = 0;
    if (!line.starts_with(kLineStart)) return std::nullopt;
    line.remove_prefix(1);
    if (!takeNumber(line, &event.timeUs) || !takeNumber(line, &event.id) ||
        !takeNumber(line, &size)) {
        return std::nullopt;
    }
    if (size > kMaxEventBytes || line.size() != 2 * size) return std::nullopt;
    event.bytes.reserve(size);
    for (size_t i = 0; i < line.size(); i += 2) {
        const int high = digitValue(line[i]);
        const int low = digitValue(line[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        event.bytes += static_cast<char>(high << 4 | low);
    }
    return event;
}

}  // namespace hosttelemetry
