// SPDX-License-Identifier: Apache-2.0
#include "hub/Deaths.h"

#include "embedded/ByteReader.h"
#include "hub/Death.h"

namespace binderhost::hub {

bool Deaths::request(Process* process, const binder_handle_cookie& what) {
    Reference* reference = mReferences->find(process, what.handle);
    if (!reference || reference->death) return true;
    if (process->deathLinks >= mLimits.deathLinks) return false;
    process->deathLinks++;
    reference->death = std::make_shared<Death>();
    reference->death->process = process;
    reference->death->cookie = what.cookie;
    if (!reference->node->owner) {
        reference->death->state = Death::State::DeadQueued;
        mScheduler->queue(process, reference->death);
    }
    return true;
}

void Deaths::clear(Thread* thread, const binder_handle_cookie& what) {
    Reference* reference = mReferences->find(thread->process, what.handle);
    if (!reference || !reference->death || reference->death->cookie != what.cookie) return;
    const DeathPtr death = std::move(reference->death);
    reference->death = nullptr;
    switch (death->state) {
        case Death::State::DeadQueued:
        case Death::State::DeadDelivered:
            death->clearWanted = true;
            break;
        case Death::State::Linked:
        case Death::State::Told:
        case Death::State::ClearQueued:
            confirmCleared(thread, death);
            break;
    }
}

void Deaths::confirmCleared(Thread* thread, const DeathPtr& death) {
    death->state = Death::State::ClearQueued;
    if (thread->looper) {
        mScheduler->queue(thread, death);
    } else {
        mScheduler->queue(thread->process, death);
    }
}

void Deaths::seen(Thread* thread, uint64_t cookie, bool told) {
    auto& delivered = thread->process->deliveredDeaths;
    auto at = delivered.lower_bound({cookie, nullptr});
    if (at == delivered.end() || at->first != cookie) return;
    const DeathPtr death = at->second;
    delivered.erase(at);
    if (!told) {
        death->state = Death::State::DeadQueued;
        mScheduler->queue(thread->process, death);
        return;
    }
    death->state = Death::State::Told;
    if (death->clearWanted) confirmCleared(thread, death);
}

void Deaths::nodeDied(const NodePtr& node) {
    for (const auto& [serial, reference] : node->references) {
        const DeathPtr& death = reference->death;
        if (!death || death->state != Death::State::Linked) continue;
        death->state = Death::State::DeadQueued;
        mScheduler->queue(reference->process, death);
    }
}

bool Deaths::tell(const DeathPtr& death, const Thread& thread, Record* record) {
    if (death->cancelled) return false;
    const bool dead = death->state == Death::State::DeadQueued;
    appendBytes(&record->head, uint32_t{dead ? BR_DEAD_BINDER : BR_CLEAR_DEATH_NOTIFICATION_DONE});
    appendBytes(&record->head, death->cookie);
    if (dead) {
        death->state = Death::State::DeadDelivered;
        death->reader = thread.serial;
        death->process->deliveredDeaths.emplace(death->cookie, death);
    } else {
        death->process->deathLinks--;
    }
    return dead;
}

}  // namespace binderhost::hub
