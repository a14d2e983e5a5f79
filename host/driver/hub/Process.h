// SPDX-License-Identifier: Apache-2.0
//
// Process: a process as the hub knows it, with all that is charged to it.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "hub/Buffer.h"
#include "hub/Identity.h"
#include "hub/Node.h"
#include "hub/Outbox.h"
#include "hub/Reference.h"
#include "hub/Thread.h"

namespace binderhost::hub {

struct Process {
    explicit Process(const Identity& whose) : identity(whose) {}

    Identity identity;
    bool dying = false;
    uint32_t maxThreads = 0;
    uint32_t requestedThreads = 0;
    uint32_t startedThreads = 0;
    bool spamDetection = false;
    bool spamReported = false;

    std::vector<std::unique_ptr<Thread>> threads;
    /** The latest to wait is at the back and is taken first: its caches are warm. */
    std::vector<Thread*> idle;
    std::deque<Work> todo;

    std::unordered_map<uint64_t, NodePtr> nodes;
    std::unordered_map<uint32_t, std::unique_ptr<Reference>> handles;
    std::unordered_map<const Node*, Reference*> handleOf;
    /** Numbers below nextHandle that were given back. */
    std::set<uint32_t> freeHandles;
    uint32_t nextHandle = 1;

    std::unordered_map<uint64_t, std::unique_ptr<Buffer>> buffers;
    uint64_t bufferBytes = 0;
    uint64_t onewayBytes = 0;
    /** Promised to senders of one-way calls that have not come yet. */
    uint64_t promisedBytes = 0;
    size_t descriptors = 0;
    /** Notices about its nodes that leaving threads have given back. */
    size_t untold = 0;

    /** Null until it asks for one, and in a process whose uid may change. */
    std::unique_ptr<Outbox> outbox;
    /** Outboxes has it on its list. */
    bool outboxPending = false;

    /** Links and what is left of cleared ones. */
    size_t deathLinks = 0;
    /** By cookie; told and not yet confirmed. */
    std::set<std::pair<uint64_t, DeathPtr>> deliveredDeaths;
};

}  // namespace binderhost::hub
