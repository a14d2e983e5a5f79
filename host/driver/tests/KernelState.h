// SPDX-License-Identifier: Apache-2.0
//
// KernelState: what the kernel's binder module holds, in the words of a hub's figures.
//
// Read from the module's debug files, which only root may read, where debugfs is mounted. They tell
// of all devices and processes together, so they say something about a test only where nothing else
// uses binder. What a process that has ended held is given up some moments later.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace binderhost::tests {

/**
 * processes (each opened device is one), threads, nodes, handles, buffers, death_links. Throws
 * std::runtime_error where the files cannot be read.
 */
[[nodiscard]] std::map<std::string, uint64_t> kernelState();

/** The same of a text with the shape of the module's file "state". */
[[nodiscard]] std::map<std::string, uint64_t> parseKernelState(const std::string& text);

}  // namespace binderhost::tests
