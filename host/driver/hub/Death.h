// SPDX-License-Identifier: Apache-2.0
//
// Death: one link of a process to the death of a node.
//
//      Linked ── node dies ──▶ DeadQueued ── read ──▶ DeadDelivered ── BC_DEAD_BINDER_DONE ─▶ Told
//         │                         │ cleared: noted        │ cleared: noted          │ (noted) │
//         └── cleared ──▶ ClearQueued ◀─────────────────────┴─────────────────────────┘◀────────┘
//
// Clearing a link whose notice is under way lets the notice pass first, so that both sides agree
// that it was seen; the confirmation follows.
#pragma once

#include <cstdint>

namespace binderhost::hub {

struct Process;

struct Death {
    enum class State { Linked, DeadQueued, DeadDelivered, Told, ClearQueued };

    Process* process = nullptr;
    uint64_t cookie = 0;
    State state = State::Linked;
    /** Serial number of the thread that was told last. */
    uint64_t reader = 0;
    bool clearWanted = false;
    /** The reference went away with it: what is still queued is void. */
    bool cancelled = false;
};

}  // namespace binderhost::hub
