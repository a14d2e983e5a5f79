// SPDX-License-Identifier: Apache-2.0
//
// Peer: the forked process behind a PeerClient.
#pragma once

#include <cstdint>
#include <string>

namespace binderhost::tests {

/** What the first byte of a note to a peer wants. */
enum class Request : uint8_t { Exchange, Run, NewThread };

/** Serves a socket until it is shut; never returns. */
[[noreturn]] void runPeer(const std::string& path, int socket);

}  // namespace binderhost::tests
