// SPDX-License-Identifier: Apache-2.0
//
// Reference: a process's handle on a node of another process.
#pragma once

#include <cstdint>

#include "hub/Work.h"

namespace binderhost::hub {

struct Process;

struct Reference {
    uint32_t handle = 0;
    uint64_t serial = 0;
    NodePtr node;
    Process* process = nullptr;
    uint32_t strong = 0;
    uint32_t weak = 0;
    DeathPtr death;
};

}  // namespace binderhost::hub
