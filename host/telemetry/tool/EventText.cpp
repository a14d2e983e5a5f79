// SPDX-License-Identifier: Apache-2.0
//
// Event text.
#include "EventText.h"

#include <json/writer.h>
#include <time.h>

#include <array>
#include <cinttypes>
#include <cstdio>

namespace hosttelemetry {

namespace {

std::string compact(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

/** Times before 1970 count down to it: their milliseconds still count up. */
std::string localTime(int64_t timeUs) {
    constexpr int64_t kSecond = 1'000'000;
    const int64_t us = (timeUs % kSecond + kSecond) % kSecond;
    const time_t seconds = (timeUs - us) / kSecond;
    tm parts{};
    if (localtime_r(&seconds, &parts) == nullptr) return std::to_string(timeUs) + "us";
    std::array<char, 64> date{};
    strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S", &parts);
    std::array<char, 96> text{};
    snprintf(text.data(), text.size(), "%s.%03" PRId64, date.data(), us / 1000);
    return text.data();
}

}  // namespace

std::string toText(const Event& event, const std::optional<DecodedEvent>& decoded) {
    std::string line = localTime(event.timeUs) + ' ' + std::to_string(event.id);
    if (!decoded) return line + " bytes=" + toHex(event.bytes);
    line += ' ' + decoded->type;
    for (const auto& [name, value] : decoded->fields)
        line += ' ' + name + '=' + compact(value);
    return line;
}

std::string toJson(const Event& event, const std::optional<DecodedEvent>& decoded) {
    // Written by hand at the outside: the library would sort the fields by name.
    std::string line =
            "{\"time_us\":" + std::to_string(event.timeUs) + ",\"id\":" + std::to_string(event.id);
    if (!decoded) return line + ",\"bytes\":\"" + toHex(event.bytes) + "\"}";
    line += ",\"event\":" + compact(decoded->type) + ",\"fields\":{";
    const char* separator = "";
    for (const auto& [name, value] : decoded->fields) {
        line += separator + compact(name) + ':' + compact(value);
        separator = ",";
    }
    return line + "}}";
}

}  // namespace hosttelemetry
