// SPDX-License-Identifier: Apache-2.0
//
// Outboxes: letters of all processes in the order of their sending.
//
// Problem: each process has a ring of its own, and the hub looks into one after the other. A letter
// that was written after another (its writer knew, by whatever way, that the other had been sent)
// must not be taken before it.
//
//      T = now ──▶ hear all bells ──▶ take what is stamped up to T, oldest first
//
// A letter that is stamped up to T and has a successor up to T was complete, and its bell rung,
// before T: it is heard. Everything later waits for the next turn, together with what it may have
// followed; so does what is written during the turn, whatever its stamp says.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "hub/Process.h"

namespace binderhost::hub {

class Outboxes {
public:
    /** There is something to take, or may be. */
    void rung(Process* process);
    void forget(Process* process);
    [[nodiscard]] bool pending() const { return !mPending.empty(); }

    /**
     * Gives out the letters that are stamped up to until, at whatever time now their writers claim.
     * The processes whose outbox is broken come back; they are forgotten.
     */
    [[nodiscard]] std::vector<Process*> take(
            uint64_t until, const std::function<void(Process*, const Outbox::Letter&)>& give);

private:
    std::vector<Process*> mPending;
};

}  // namespace binderhost::hub
