// SPDX-License-Identifier: Apache-2.0
#include "hub/Outboxes.h"

#include <algorithm>
#include <queue>

namespace binderhost::hub {
namespace {

struct Front {
    uint64_t stamp;
    Process* process;
    [[nodiscard]] bool operator>(const Front& other) const { return stamp > other.stamp; }
};

}  // namespace

void Outboxes::rung(Process* process) {
    if (!process->outbox || process->outboxPending) return;
    process->outboxPending = true;
    mPending.push_back(process);
}

void Outboxes::forget(Process* process) {
    if (!process->outboxPending) return;
    process->outboxPending = false;
    std::erase(mPending, process);
}

std::vector<Process*> Outboxes::take(
        uint64_t until, const std::function<void(Process*, const Outbox::Letter&)>& give) {
    std::priority_queue<Front, std::vector<Front>, std::greater<>> fronts;
    std::vector<Process*> later, broken;
    // Where the process goes next: into the queue, to the next turn, away, or out.
    const auto place = [&](Process* process) {
        Outbox& outbox = *process->outbox;
        const Outbox::Letter* letter = outbox.peek();
        if (letter && letter->head.stamp <= until) {
            fronts.push({letter->head.stamp, process});
        } else if (letter) {
            later.push_back(process);
        } else {
            process->outboxPending = false;
            if (outbox.broken()) broken.push_back(process);
        }
    };
    for (Process* process : mPending) {
        process->outbox->listen();
        place(process);
    }
    while (!fronts.empty()) {
        Process* process = fronts.top().process;
        fronts.pop();
        const Outbox::Letter letter = *process->outbox->peek();
        process->outbox->take();
        give(process, letter);
        place(process);
    }
    mPending = std::move(later);
    return broken;
}

}  // namespace binderhost::hub
