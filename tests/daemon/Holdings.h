// SPDX-License-Identifier: Apache-2.0
//
// Holdings: what a process and its hub hold at one moment, to be compared with another.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>

namespace daemontest {

/** Threads of a process. */
[[nodiscard]] size_t threadsOf(pid_t pid);

/** Open sockets of a process. */
[[nodiscard]] size_t socketsOf(pid_t pid);

/** Bytes of memory that a process has written to and shares with nobody. */
[[nodiscard]] int64_t privateBytesOf(pid_t pid);

/** The process that listens as the hub. */
[[nodiscard]] pid_t hubPidOf(const std::string& hubPath);

/**
 * By name: the process's descriptors but for sockets, and what the hub counts of all processes but
 * for threads. The pool may grow at any time up to its bound, each thread with a connection; that
 * is no leak.
 */
using Holdings = std::map<std::string, int64_t>;
[[nodiscard]] Holdings holdingsOf(pid_t pid, const std::string& hubPath);

}  // namespace daemontest
