// SPDX-License-Identifier: Apache-2.0
//
// Shortens what shows something: leaves out chunks, large ones first, as long as it still shows.
//
// A unit is kept or left out as a whole. One thread; as many tries as are allowed, each of which
// may take long.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace oracle {

using Lines = std::vector<std::string>;

/** Commands that belong together: waiting for something belongs to what brings it about. */
[[nodiscard]] std::vector<Lines> unitsOf(const Lines& lines);

/** stillShows is asked at most `tries` times, never about the whole. */
[[nodiscard]] Lines shortened(const Lines& lines,
                              const std::function<bool(const Lines&)>& stillShows, int tries);

}  // namespace oracle
