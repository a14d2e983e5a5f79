// SPDX-License-Identifier: Apache-2.0
//
// StatsClient: asks a running hub what it holds.
#pragma once

#include <string>

namespace binderhost {

/** "name=number" lines: processes, threads, nodes, handles, buffers, ... False with a message. */
[[nodiscard]] bool readHubStats(const std::string& path, std::string* out, std::string* error);

}  // namespace binderhost
