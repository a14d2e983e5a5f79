// SPDX-License-Identifier: Apache-2.0
//
// What a process does to the shared memory of its own letters, past its driver.
#pragma once

#include <linux/android/binder.h>

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "Commands.h"
#include "driver/Driver.h"
#include "embedded/OutboxLayout.h"

namespace binderhost::tests {

/** Where this process's letters are mapped; null when they are not. */
inline outbox::Letters* findLetters() {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        uintptr_t start = 0;
        const bool named = line.find("memfd:binder-letters") != std::string::npos;
        if (named && std::sscanf(line.c_str(), "%" SCNxPTR, &start) == 1) {
            return reinterpret_cast<outbox::Letters*>(start);
        }
    }
    return nullptr;
}

/** One that is spoilt before the hub looks, and one more that makes it look. */
inline int sendSpoiltLetter(Driver& driver, int64_t handle) {
    outbox::Letters* letters = findLetters();
    if (letters == nullptr) return -ENOENT;
    Commands commands;
    commands.oneway(static_cast<uint32_t>(handle), 1);
    uint8_t room[64];
    for (const uint32_t rung : {1, 0}) {
        letters->rung.store(rung);
        binder_write_read bwr{};
        bwr.write_buffer = reinterpret_cast<uintptr_t>(commands.bytes.data());
        bwr.write_size = commands.bytes.size();
        bwr.read_buffer = reinterpret_cast<uintptr_t>(room);
        bwr.read_size = sizeof(room);
        if (const int status = driver.writeRead(&bwr)) return status;
        std::memset(letters->ring, 0xff, outbox::kRingBytes);
    }
    return 0;
}

}  // namespace binderhost::tests
