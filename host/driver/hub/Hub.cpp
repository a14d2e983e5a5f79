// SPDX-License-Identifier: Apache-2.0
#include "hub/Hub.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>

namespace binderhost::hub {
namespace {

/** A record starts with its header and BR_NOOP or BR_SPAWN_LOOPER, filled in last. */
constexpr size_t kStreamStart = sizeof(frame::Header) + sizeof(uint32_t);

/** Of the notices in a record: beside the largest transaction they stay below frame::kMaxBytes. */
constexpr size_t kNoticeBytes = 32 * 1024;

void begin(Record* record) {
    record->head.assign(kStreamStart, 0);
    record->payload.clear();
    record->descriptors.clear();
}

}  // namespace

Hub::Hub(const Limits& limits)
      : mLimits(limits),
        mReferences(&mScheduler, mLimits),
        mBuffers(&mScheduler, &mReferences, mLimits),
        mDeaths(&mScheduler, &mReferences, mLimits),
        mCalls(&mScheduler, &mReferences, &mBuffers, mLimits) {}

Hub::~Hub() {
    while (!mProcesses.empty())
        closeProcess(mProcesses.back().get());
}

Process* Hub::openProcess(const Identity& identity) {
    return mProcesses.emplace_back(std::make_unique<Process>(identity)).get();
}

Thread* Hub::openThread(Process* process, Link* link) {
    if (process->threads.size() >= mLimits.threadsPerProcess) return nullptr;
    return process->threads.emplace_back(std::make_unique<Thread>(process, link, ++mLastThread))
            .get();
}

int Hub::becomeContextManager(Process* process, uid_t uid) {
    if (mReferences.contextManager()) return -EBUSY;
    if (mContextManagerUid && *mContextManagerUid != uid) return -EPERM;
    // It takes no descriptors, as on the device.
    const NodePtr node = mReferences.localNode(process, flat_binder_object{});
    if (!node) return -ENOMEM;
    // The node is its process's for good: the owner is told nothing about its references.
    node->strongPins++;
    node->weakPins++;
    node->hasStrong = node->hasWeak = true;
    mContextManagerUid = uid;
    mReferences.contextManager(node);
    return 0;
}

void Hub::endThread(Thread* thread) {
    Process* process = thread->process;
    mScheduler.forget(thread);
    mCalls.abandon(thread);
    std::deque<Work> left;
    left.swap(thread->todo);
    for (Work& work : left)
        dropWork(process, std::move(work));
    mScheduler.forget(thread);
    std::erase_if(process->threads, [thread](const auto& each) { return each.get() == thread; });
}

void Hub::dropWork(Process* process, Work work) {
    if (const auto* transaction = std::get_if<TransactionPtr>(&work)) {
        mCalls.discard(*transaction);
    } else if (!std::holds_alternative<Notice>(work)) {
        // References and deaths concern the process: another thread of it must hear of them.
        mScheduler.queue(process, std::move(work));
    }
}

void Hub::closeThread(Thread* thread) {
    endThread(thread);
    flush();
}

void Hub::closeProcess(Process* process) {
    process->dying = true;
    if (const NodePtr node = mReferences.contextManager(); node && node->owner == process) {
        mReferences.contextManager(nullptr);
    }
    while (!process->threads.empty())
        endThread(process->threads.back().get());

    // In order, as the kernel: what is told of it is the same each time.
    const std::map<uint64_t, NodePtr> nodes(process->nodes.begin(), process->nodes.end());
    process->nodes.clear();
    for (const auto& [ptr, node] : nodes) {
        node->owner = nullptr;
        node->onewayTodo.clear();
        mReferences.promiseNoMore(*node);
        mDeaths.nodeDied(node);
    }
    std::deque<Work> left;
    left.swap(process->todo);
    for (const Work& work : left) {
        if (const auto* call = std::get_if<TransactionPtr>(&work)) {
            mCalls.fail(*call, BR_DEAD_REPLY);
        }
    }
    std::set<uint32_t> handles;
    for (const auto& [handle, reference] : process->handles)
        handles.insert(handle);
    for (const uint32_t handle : handles)
        mReferences.drop(mReferences.find(process, handle));
    // What the buffers pinned went with the nodes and handles above.
    process->buffers.clear();
    std::erase_if(mProcesses, [process](const auto& each) { return each.get() == process; });
    flush();
}

void Hub::cancelRead(Thread* thread) {
    if (!thread->waiting) return;
    mScheduler.leaveIdle(thread);
    begin(&mRecord);
    send(thread, &mRecord, BR_NOOP);
}

void Hub::post(Process* sender, const Outbox::Letter& letter) {
    mPosted++;
    mCalls.post(sender, letter);
}

void Hub::flush() {
    while (Thread* thread = mScheduler.nextTouched()) {
        if (thread->waiting && thread->hasDeliverable()) {
            mScheduler.leaveIdle(thread);
            if (fill(thread, &mRecord)) {
                send(thread, &mRecord, wantsLooper(thread) ? BR_SPAWN_LOOPER : BR_NOOP);
                continue;
            }
        }
        mScheduler.settle(thread);
    }
}

bool Hub::fill(Thread* thread, Record* record) {
    begin(record);
    bool ends = false;
    while (!ends && !thread->todo.empty() && record->head.size() < kNoticeBytes) {
        const Work work = mScheduler.takeFirst(thread);
        if (const auto* notice = std::get_if<Notice>(&work)) {
            appendBytes(&record->head, notice->command);
        } else if (const auto* node = std::get_if<NodePtr>(&work)) {
            mReferences.tellOwner(*node, record);
        } else if (const auto* death = std::get_if<DeathPtr>(&work)) {
            ends = mDeaths.tell(*death, *thread, record);
        } else if (const auto* untold = std::get_if<Untold>(&work)) {
            thread->process->untold--;
            appendBytes(&record->head, untold->command);
            appendBytes(&record->head, untold->object);
        } else if (const auto* call = std::get_if<TransactionPtr>(&work)) {
            const TransactionPtr& transaction = *call;
            mLast = {transaction->buffer, transaction->reply, transaction->oneway,
                     record->head.size()};
            mCalls.deliver(transaction, thread, record);
            ends = true;
        }
    }
    return record->head.size() > kStreamStart;
}

bool Hub::wantsLooper(Thread* thread) {
    Process& process = *thread->process;
    if (!thread->looper || !process.idle.empty() || process.requestedThreads > 0 ||
        process.startedThreads >= process.maxThreads) {
        return false;
    }
    process.requestedThreads++;
    return true;
}

void Hub::send(Thread* thread, Record* record, uint32_t firstCommand) {
    frame::Header header{.kind = frame::Kind::Returns};
    header.descriptors = static_cast<uint32_t>(record->descriptors.size());
    std::memcpy(record->head.data(), &header, sizeof(header));
    std::memcpy(record->head.data() + sizeof(header), &firstCommand, sizeof(firstCommand));
    thread->waiting = false;
    if (!thread->link->send(*record)) {
        withdraw(thread, record);
        header.descriptors = 0;
        std::memcpy(record->head.data(), &header, sizeof(header));
        (void)thread->link->send(*record);
    }
    record->descriptors.clear();
}

void Hub::withdraw(Thread* thread, Record* record) {
    record->head.resize(mLast.position);
    record->payload.clear();
    record->descriptors.clear();
    if (mLast.reply) {
        appendBytes(&record->head, uint32_t{BR_FAILED_REPLY});
    } else if (!mLast.oneway) {
        mCalls.reject(thread);
    }
    mBuffers.release(mLast.buffer);
}

std::string Hub::stats() const {
    size_t threads = 0, idle = 0, nodes = 0, handles = 0, buffers = 0, links = 0, descriptors = 0,
           work = 0, outboxes = 0;
    uint64_t bytes = 0;
    for (const auto& process : mProcesses) {
        threads += process->threads.size();
        idle += process->idle.size();
        nodes += process->nodes.size();
        handles += process->handles.size();
        buffers += process->buffers.size();
        links += process->deathLinks;
        descriptors += process->descriptors;
        outboxes += process->outbox ? 1 : 0;
        bytes += process->bufferBytes;
        work += process->todo.size();
        for (const auto& thread : process->threads)
            work += thread->todo.size();
    }
    std::string out;
    auto line = [&out](const char* name, uint64_t value) {
        out += std::string(name) + "=" + std::to_string(value) + "\n";
    };
    line("processes", mProcesses.size());
    line("threads", threads);
    line("idle", idle);
    line("nodes", nodes);
    line("handles", handles);
    line("buffers", buffers);
    line("buffer_bytes", bytes);
    line("death_links", links);
    line("descriptors", descriptors);
    line("queued", work);
    line("outboxes", outboxes);
    line("letters_taken", mPosted);
    return out;
}

bool Hub::hasDeathLink(pid_t watcher, pid_t watched) const {
    return std::any_of(mProcesses.begin(), mProcesses.end(), [&](const auto& process) {
        if (process->identity.pid() != watcher) return false;
        return std::any_of(process->handles.begin(), process->handles.end(), [&](const auto& each) {
            const Reference& reference = *each.second;
            return reference.death && reference.node->owner &&
                   reference.node->owner->identity.pid() == watched;
        });
    });
}

}  // namespace binderhost::hub
