// SPDX-License-Identifier: Apache-2.0
//
// Transaction: a call or a reply on its way, and a two-way call until its answer.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

#include "hub/Work.h"

namespace binderhost::hub {

struct Process;
struct Thread;
struct Buffer;

struct Transaction {
    bool reply = false;
    bool oneway = false;
    uint32_t code = 0;
    uint32_t flags = 0;
    uid_t senderUid = 0;
    /** Owned by the receiving process; null once released. */
    Buffer* buffer = nullptr;

    /** The waiting caller; null in one-way calls and when it has gone. */
    Thread* from = nullptr;
    /** The thread that has to answer, once delivered. */
    Thread* to = nullptr;
    /** The call in which the caller made this one: upwards along the chain. */
    TransactionPtr fromParent;
    /** How many calls the chain has, this one included. */
    size_t depth = 1;
    /** The answer came while the caller was in a nested call: given when it is back. */
    std::optional<Work> early;
};

}  // namespace binderhost::hub
