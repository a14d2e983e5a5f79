// SPDX-License-Identifier: Apache-2.0
// The processes that make up a headset: what they are about to do, and who watches whom.
#include "session/SessionError.h"
#include "session/Stack.h"

namespace sim {
namespace {

using std::chrono::milliseconds;
using Control = binderhost::HubControl;

/** A thread that waits for a lock looks as if it were at work: where another of its process waits
 *  for one that hangs, that may be so until the end. */
constexpr milliseconds kPatienceWithHung(1000);

}  // namespace

bool Stack::knowsQuiet() const {
    if (!mOptions.device.empty()) return mKernel != nullptr;
    return mHub == nullptr || !mHub->isHung();
}

bool Stack::awaitQuiet(const std::vector<pid_t>& hungApps, std::string* inFlight) {
    const bool isOnHub = mHub != nullptr && !mHub->isHung();
    if (!isOnHub && mKernel == nullptr) return true;
    std::vector<pid_t> hung = hungApps;
    int turns = 1;
    for (const Member& member : members()) {
        if (member.process->isHung()) hung.push_back(member.process->pid());
        if (member.process->isSlow()) turns = kTurnsOfSlowProcesses;
    }
    const auto patience = hung.empty() ? turns * mOptions.patience : kPatienceWithHung;
    if (mKernel != nullptr) return awaitQuietKernel(hung, patience, inFlight) || !hung.empty();
    const Control::Status status = mControl->awaitQuiet(
            hung, patience, inFlight, mOptions.stops == nullptr ? -1 : mOptions.stops->fd());
    if (status == Control::Status::Stopped) throw SessionStopped(mOptions.stops->take());
    // A hub that has gone has taken along whatever was on its way.
    return status != Control::Status::TimedOut || !hung.empty();
}

bool Stack::awaitQuietKernel(const std::vector<pid_t>& hung, milliseconds patience,
                             std::string* inFlight) {
    const auto isQuiet = [&] {
        *inFlight = mKernel->inFlight({hung.begin(), hung.end()}).value_or("something moves");
        return inFlight->empty();
    };
    return retry(isQuiet, patience);
}

std::optional<bool> Stack::daemonWatches(const std::string& service) {
    if (!knowsWatches()) return {};
    const auto found = mServices.find(service);
    if (found == mServices.end() || mDaemon == nullptr) return false;
    const int watched = found->second->pid();
    if (mKernel != nullptr) return mKernel->watches(mDaemon->pid(), watched);
    return mControl->askWatch(mDaemon->pid(), watched) == Control::Status::Done;
}

}  // namespace sim
