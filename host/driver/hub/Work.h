// SPDX-License-Identifier: Apache-2.0
//
// Work: what waits for a thread or for any pool thread of a process.
#pragma once

#include <linux/android/binder.h>

#include <cstdint>
#include <memory>
#include <variant>

namespace binderhost::hub {

struct Transaction;
struct Node;
struct Death;
using TransactionPtr = std::shared_ptr<Transaction>;
using NodePtr = std::shared_ptr<Node>;
using DeathPtr = std::shared_ptr<Death>;

/** A BR_* command, with a 32-bit argument in the case of BR_ERROR. */
struct Notice {
    uint32_t command;
    /** Goes out with the next thing only: the completion of a two-way call rides on its reply. */
    bool deferred = false;
};

/** What the owner of a node was told and has not read, because the thread left: told as it was. */
struct Untold {
    uint32_t command;
    binder_ptr_cookie object;
};

using Work = std::variant<Notice, TransactionPtr, NodePtr, DeathPtr, Untold>;

}  // namespace binderhost::hub
