// SPDX-License-Identifier: Apache-2.0
#include "hub/Quiet.h"

#include <algorithm>
#include <unordered_set>

#include "hub/Death.h"
#include "hub/Transaction.h"

namespace binderhost::hub {
namespace {

class Look {
public:
    Look(const Hub& hub, const std::set<pid_t>& leftOut) : mHub(hub), mLeftOut(leftOut) {
        findHeld();
    }

    [[nodiscard]] std::optional<std::string> inFlight() const {
        for (const auto& process : mHub.processes()) {
            if (isLeftOut(*process)) continue;
            if (const char* what = inFlightOf(*process)) {
                return "process " + std::to_string(process->identity.pid()) + ": " + what;
            }
        }
        return std::nullopt;
    }

private:
    [[nodiscard]] bool isLeftOut(const Process& process) const {
        return mLeftOut.contains(process.identity.pid());
    }
    [[nodiscard]] bool isHeld(const Thread& thread) const { return mHeld.contains(thread.serial); }

    /**
     * Threads whose innermost call needs a process that is left out. From the outermost inwards, so
     * that what waits in a circle is nobody's but its own, and in flight.
     */
    void findHeld() {
        if (mLeftOut.empty()) return;
        for (bool found = true; found;) {
            found = false;
            for (const auto& process : mHub.processes()) {
                for (const auto& thread : process->threads) {
                    if (isHeld(*thread) || !waitsInVain(*thread)) continue;
                    mHeld.insert(thread->serial);
                    found = true;
                }
            }
        }
    }

    [[nodiscard]] bool waitsInVain(const Thread& thread) const {
        if (thread.stack.empty() || thread.hasDeliverable()) return false;
        const Transaction& call = *thread.stack.back();
        if (call.from != &thread || call.early) return false;
        if (call.to) return isLeftOut(*call.to->process) || isHeld(*call.to);
        return call.buffer && (isLeftOut(*call.buffer->owner) || isStuck(*call.buffer->owner));
    }

    /** What waits for the process's pool waits for a process that is left out. */
    [[nodiscard]] bool isStuck(const Process& process) const {
        size_t loopers = 0;
        for (const auto& thread : process.threads) {
            if (!thread->looper) continue;
            if (!isHeld(*thread)) return false;
            loopers++;
        }
        return loopers > 0 && process.requestedThreads == 0;
    }

    [[nodiscard]] bool isHeld(const Process& process, uint64_t reader) const {
        return mHeld.contains(reader) &&
               std::any_of(process.threads.begin(), process.threads.end(),
                           [reader](const auto& each) { return each->serial == reader; });
    }

    [[nodiscard]] static bool counts(const Work& work) {
        return std::holds_alternative<TransactionPtr>(work) ||
               std::holds_alternative<DeathPtr>(work);
    }

    [[nodiscard]] const char* inFlightOf(const Process& process) const {
        for (const auto& thread : process.threads) {
            if (const char* what = inFlightOf(*thread)) return what;
        }
        if (!isStuck(process) && std::any_of(process.todo.begin(), process.todo.end(), counts)) {
            return "a call or a notice of death waits for one of its threads";
        }
        for (const auto& [number, buffer] : process.buffers) {
            // One that is not delivered is somewhere above, or behind another that is.
            if (buffer->oneway && buffer->delivered && !isHeld(process, buffer->reader)) {
                return "a one-way call is running";
            }
        }
        for (const auto& [cookie, death] : process.deliveredDeaths) {
            if (!isHeld(process, death->reader)) return "a notice of death is being treated";
        }
        return nullptr;
    }

    [[nodiscard]] const char* inFlightOf(const Thread& thread) const {
        if (isHeld(thread)) return nullptr;
        const auto matters = [](const Work& work) {
            const auto* notice = std::get_if<Notice>(&work);
            return notice ? !notice->deferred : counts(work);
        };
        if (std::any_of(thread.todo.begin(), thread.todo.end(), matters)) {
            return "a thread has not read an answer, a call or a notice";
        }
        if (!thread.stack.empty()) {
            return thread.stack.back()->from == &thread ? "a thread waits for an answer"
                                                        : "a call is running";
        }
        if (thread.looper && !thread.waiting) return "a thread of its pool is at work";
        return nullptr;
    }

    const Hub& mHub;
    const std::set<pid_t>& mLeftOut;
    /** Serial numbers. */
    std::unordered_set<uint64_t> mHeld;
};

}  // namespace

std::optional<std::string> inFlight(const Hub& hub, const std::set<pid_t>& leftOut) {
    return Look(hub, leftOut).inFlight();
}

}  // namespace binderhost::hub
