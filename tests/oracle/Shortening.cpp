// SPDX-License-Identifier: Apache-2.0
// Shortens what shows something.
#include "Shortening.h"

#include <algorithm>

namespace oracle {
namespace {

using Units = std::vector<Lines>;

Lines joined(const Units& units) {
    Lines lines;
    for (const Lines& unit : units)
        lines.insert(lines.end(), unit.begin(), unit.end());
    return lines;
}

/** Leaves out chunks of a size, the last one first; whether any could be. */
bool leaveOut(size_t size, const std::function<bool(const Lines&)>& stillShows, int* tries,
              Units* units) {
    bool anything = false;
    for (size_t end = units->size(); end > 0 && *tries > 0;) {
        const size_t begin = end - std::min(size, end);
        Units rest(units->begin(), units->begin() + begin);
        rest.insert(rest.end(), units->begin() + end, units->end());
        if (!rest.empty()) {
            --*tries;
            if (stillShows(joined(rest))) {
                *units = std::move(rest);
                anything = true;
            }
        }
        end = begin;
    }
    return anything;
}

}  // namespace

std::vector<Lines> unitsOf(const Lines& lines) {
    Units units;
    for (const std::string& line : lines) {
        const bool belongsToLast = line.starts_with("wait ") && !units.empty();
        if (!belongsToLast) units.emplace_back();
        units.back().push_back(line);
    }
    return units;
}

Lines shortened(const Lines& lines, const std::function<bool(const Lines&)>& stillShows,
                int tries) {
    Units units = unitsOf(lines);
    for (size_t size = units.size() / 2; size > 1; size /= 2)
        leaveOut(size, stillShows, &tries, &units);
    while (tries > 0 && leaveOut(/*size=*/1, stillShows, &tries, &units)) {
    }
    return joined(units);
}

}  // namespace oracle
