// SPDX-License-Identifier: Apache-2.0
#include "RatioRows.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace {

__attribute__((format(printf, 1, 2))) std::string formatted(const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return text;
}

/** Shorter to read: what the library adds to say how a time was taken goes. */
std::string shown(std::string name) {
    for (const std::string part : {"/manual_time", "/iterations:"}) {
        const size_t start = name.find(part);
        if (start == std::string::npos) continue;
        const size_t end = name.find_first_of("/:", start + part.size());
        name.erase(start, end == std::string::npos ? end : end - start);
    }
    return name;
}

const char* verdict(const PairedBenchmark& pair, double ratio) {
    if (pair.goal == 0) return "shown";
    if (ratio <= pair.stretch) return "stretch";
    return ratio <= pair.goal ? "met" : "missed";
}

std::string aim(double ratio) {
    return ratio > 0 ? formatted("%.2f", ratio) : "-";
}

}  // namespace

std::string pairHeading() {
    return formatted("%-26s %12s   %-26s %12s %7s %6s %8s  %s", "work", "us", "anchor", "us",
                     "ratio", "goal", "stretch", "verdict");
}

std::string pairRow(const PairedBenchmark& pair, double measured, double anchor) {
    const double ratio = measured / anchor;
    return formatted("%-26s %12.2f   %-26s %12.2f %7.2f %6s %8s  %s", shown(pair.name).c_str(),
                     measured, shown(pair.anchor).c_str(), anchor, ratio, aim(pair.goal).c_str(),
                     aim(pair.stretch).c_str(), verdict(pair, ratio));
}

std::string growthRow(const Growth& growth, const std::vector<std::pair<int64_t, double>>& times) {
    const bool linear = growth.expected == Growth::Expected::Linear;
    std::string row = growth.name + (linear ? ", linear, us an item:" : ", logarithmic, us:");
    for (const auto& [size, time] : times) {
        row += formatted("  %lld: %.2f", static_cast<long long>(size),
                         linear ? time / double(size) : time);
    }
    const auto& [firstSize, first] = times.front();
    const auto& [lastSize, last] = times.back();
    const double sizes = double(lastSize) / double(firstSize);
    row += formatted("  (time x%.2f, size x%.0f", last / first, sizes);
    // The logarithm of a size of 1 is 0: nothing is a multiple of it.
    if (!linear && firstSize > 1) {
        row += formatted(", its logarithm x%.2f", std::log(lastSize) / std::log(firstSize));
    }
    return row + formatted(")  n^%.2f", std::log(last / first) / std::log(sizes));
}
