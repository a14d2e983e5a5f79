// SPDX-License-Identifier: Apache-2.0
#include "hub/Scheduler.h"

#include <algorithm>

namespace binderhost::hub {
namespace {

void placed(const Work& work, Thread* at) {
    if (const auto* node = std::get_if<NodePtr>(&work)) {
        (*node)->queued = true;
        (*node)->queuedAt = at;
        (*node)->deferred = false;
    }
}

bool isDeferred(const Work& work) {
    if (const auto* notice = std::get_if<Notice>(&work)) return notice->deferred;
    const auto* node = std::get_if<NodePtr>(&work);
    return node && (*node)->deferred;
}

}  // namespace

void Scheduler::queue(Thread* thread, Work work) {
    placed(work, thread);
    if (isDeferred(work)) thread->deferred++;
    thread->todo.push_back(std::move(work));
    touch(thread);
}

void Scheduler::queueDeferred(Thread* thread, const NodePtr& node) {
    queue(thread, node);
    node->deferred = true;
    thread->deferred++;
}

void Scheduler::queue(Process* process, Work work) {
    if (process->dying) return;
    if (!process->idle.empty()) {
        Thread* thread = process->idle.back();
        leaveIdle(thread);
        queue(thread, std::move(work));
        return;
    }
    placed(work, nullptr);
    process->todo.push_back(std::move(work));
}

void Scheduler::touch(Thread* thread) {
    if (thread->dirty) return;
    thread->dirty = true;
    mTouched.push_back(thread);
}

Thread* Scheduler::nextTouched() {
    if (mTouched.empty()) return nullptr;
    Thread* thread = mTouched.front();
    mTouched.pop_front();
    thread->dirty = false;
    return thread;
}

void Scheduler::settle(Thread* thread) {
    const bool able =
            thread->waiting && thread->looper && thread->stack.empty() && !thread->hasDeliverable();
    if (!able) {
        leaveIdle(thread);
        return;
    }
    auto& todo = thread->process->todo;
    if (!todo.empty()) {
        Work work = std::move(todo.front());
        todo.pop_front();
        leaveIdle(thread);
        queue(thread, std::move(work));
    } else if (!thread->idle) {
        thread->idle = true;
        thread->process->idle.push_back(thread);
    }
}

void Scheduler::leaveIdle(Thread* thread) {
    if (!thread->idle) return;
    thread->idle = false;
    auto& idle = thread->process->idle;
    idle.erase(std::find(idle.begin(), idle.end(), thread));
}

void Scheduler::forget(Thread* thread) {
    leaveIdle(thread);
    if (thread->dirty) mTouched.erase(std::find(mTouched.begin(), mTouched.end(), thread));
    thread->dirty = false;
}

Work Scheduler::takeFirst(Thread* thread) {
    Work work = std::move(thread->todo.front());
    thread->todo.pop_front();
    if (isDeferred(work)) thread->deferred--;
    return work;
}

void Scheduler::unqueue(Node* node) {
    if (!node->queued) return;
    if (node->queuedAt && node->deferred) node->queuedAt->deferred--;
    auto& todo = node->queuedAt ? node->queuedAt->todo : node->owner->todo;
    auto holds = [node](const Work& work) {
        const auto* queued = std::get_if<NodePtr>(&work);
        return queued && queued->get() == node;
    };
    todo.erase(std::find_if(todo.begin(), todo.end(), holds));
    node->queued = node->deferred = false;
    node->queuedAt = nullptr;
}

}  // namespace binderhost::hub
