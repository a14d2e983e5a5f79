// SPDX-License-Identifier: Apache-2.0
//
// Deaths: links to the death of nodes, and their notices. See Death.h for the states.
#pragma once

#include "hub/Limits.h"
#include "hub/Link.h"
#include "hub/Process.h"
#include "hub/References.h"

namespace binderhost::hub {

class Deaths {
public:
    Deaths(Scheduler* scheduler, References* references, const Limits& limits)
          : mScheduler(scheduler), mReferences(references), mLimits(limits) {}

    /** False: more links than a process may have. A wrong handle or a second link is ignored. */
    [[nodiscard]] bool request(Process* process, const binder_handle_cookie& what);
    void clear(Thread* thread, const binder_handle_cookie& what);
    /** BC_DEAD_BINDER_DONE; or, not told, the notice goes out once more. */
    void seen(Thread* thread, uint64_t cookie, bool told);

    /** The owner has gone: every link to the node gets its notice. */
    void nodeDied(const NodePtr& node);

    /** Writes the notice; true when it was BR_DEAD_BINDER, after which a record ends. */
    [[nodiscard]] bool tell(const DeathPtr& death, const Thread& thread, Record* record);

private:
    void confirmCleared(Thread* thread, const DeathPtr& death);

    Scheduler* mScheduler;
    References* mReferences;
    const Limits& mLimits;
};

}  // namespace binderhost::hub
