// SPDX-License-Identifier: Apache-2.0
//
// Focus policy: turns the tracked state into decisions.
//
// Three questions are answered here. Which of these processes hold a focus type now
// (computeFocusState)? Which rendering app is in front (getImmersiveApp)? Which package is on top
// of the primary display (getTopActivity)? The tracker (ConnectionManager) and the client registry
// (ClientManager) are asked afresh for every decision; nothing is pushed into the policy but
// setMainDisplayFocus, and nothing is sent from it: whoever asks also notifies.
//
// The rules, highest first:
//
//   immersive app   1. a rendering system overlay that has window focus
//                   2. the shell, when it or its package is on top, rendering or not
//                   3. the first rendering client that is the top activity
//   head tracking   any foreground signal of the system, or background access
//   input tracking  foreground activity, panel or top activity, or background access; the
//                   immersive app has it exactly as long as the main display is focused
//   every type      permissive mode, as the last resort
//
// Threads: every operation may run on any number of binder threads at once.
#pragma once

#include <android-base/thread_annotations.h>
#include <json/value.h>
#include <utils/String16.h>
#include <utils/Vector.h>
#include <velmar/internal/ClientStatus.h>
#include <velmar/internal/ImmersiveApp.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ClientManager.h"
#include "ConnectionManager.h"
#include "FocusClient.h"
#include "FocusClientWithMetadata.h"
#include "FocusType.h"

namespace NQS::OS {

using velmar::internal::ClientStatus;
using velmar::internal::ImmersiveApp;

class FocusPolicy {
public:
    /** Shares ownership of both; asks nothing of them yet. */
    FocusPolicy(std::shared_ptr<ConnectionManager> connectionManager,
                std::shared_ptr<ClientManager> clientManager);
    virtual ~FocusPolicy();

    FocusPolicy(const FocusPolicy&) = delete;
    FocusPolicy& operator=(const FocusPolicy&) = delete;

    /**
     * Chooses the immersive app, stores it and records it in the history.
     *
     * Holds the policy's mutex while it asks the tracker, the registry and this policy's own
     * getTopActivity: none of them may come back here. A returned app always has its
     * isTopActivity flag set, whichever rule chose it.
     */
    virtual std::optional<ImmersiveApp> getImmersiveApp() EXCLUDES(mMutex);

    /**
     * Package of the newest foreground client that the registry knows, else the platform's answer
     * for the primary display (empty when there is none). Takes no lock.
     */
    virtual android::String16 getTopActivity();

    /** Writes the state as text to `fd`, which stays the caller's. `args` are ignored. */
    virtual void dump(int fd, const android::Vector<android::String16>& args) EXCLUDES(mMutex);

    /** The state as an object; shows neither the history nor permissive mode. */
    virtual Json::Value dumpJson() EXCLUDES(mMutex);

    /**
     * Appends to `out` one verdict per known pid, in ascending (uid, pid) order, and records each
     * in the registry. Unknown pids are left out; a type outside FocusType is granted by
     * permissive mode alone. Takes no lock: the answers of the single queries may come from
     * slightly different moments.
     */
    virtual void computeFocusState(FocusType type, const std::vector<int>& pids,
                                   std::vector<ClientStatus>& out);

    /** Whether the immersive app keeps input focus; counts from the next computeFocusState. */
    virtual void setMainDisplayFocus(bool focused);

    /** Whether the process's name is, byte for byte, the top activity's package. Takes no lock. */
    bool isTopActivity(int pid);

private:
    struct ImmersiveAppHistoryRecord {
        std::chrono::system_clock::time_point time;
        ImmersiveApp app;
    };

    struct ImmersiveState {
        /** The choice of the last getImmersiveApp. */
        std::optional<ImmersiveApp> immersiveApp;
        /** Choices, newest at the front, at most kMaxHistory. Never cleared. */
        std::deque<ImmersiveAppHistoryRecord> history;
    };

    /** What a computation needs of a record: so a list of a thousand stays a few kilobytes. */
    struct KnownClient {
        FocusClient client;
        bool hasBackgroundAccess;
    };

    static constexpr std::size_t kMaxHistory = 10;

    /** Of those pids that the registry knows: ascending, each client once. */
    std::vector<KnownClient> knownClientsInOrder(FocusType type, const std::vector<int>& pids);

    std::set<FocusClient> inputTrackingClients(const std::vector<FocusClient>& foreground,
                                               const std::vector<FocusClient>& panels,
                                               const std::vector<KnownClient>& known);
    std::set<FocusClient> headTrackingClients(const std::vector<FocusClient>& foreground,
                                              const std::vector<FocusClient>& panels);

    // The three rules of getImmersiveApp, each giving its candidate or nothing.
    std::optional<ImmersiveApp> overlayWithWindowFocusLocked(
            const std::vector<FocusClient>& rendering) REQUIRES(mMutex);
    std::optional<ImmersiveApp> shellOnTopLocked() REQUIRES(mMutex);
    std::optional<ImmersiveApp> topRenderingClientLocked(const std::vector<FocusClient>& rendering)
            REQUIRES(mMutex);

    /** Records a choice unless it is empty or of the same pid as the newest record. */
    void addToImmersiveAppHistory(const std::optional<ImmersiveApp>& app,
                                  std::deque<ImmersiveAppHistoryRecord>& history) REQUIRES(mMutex);

    std::optional<FocusClientWithMetadata> newestKnownForegroundClient();
    std::vector<FocusClientWithMetadata> knownClients(const std::vector<FocusClient>& clients);
    void dumpImmersiveStateLocked(int fd) REQUIRES(mMutex);

    // Released last to first.
    const std::shared_ptr<ConnectionManager> mConnectionManager;
    const std::shared_ptr<ClientManager> mClientManager;
    /** The stored choice and its history, changed by getImmersiveApp alone. */
    ImmersiveState mImmersiveState GUARDED_BY(mMutex);
    /** Guards mImmersiveState; also serialises whole runs of getImmersiveApp with one another. */
    std::mutex mMutex;
    /** Written by grants and revocations of display 0 while computations read it. */
    std::atomic<bool> mMainDisplayFocus{true};
};

}  // namespace NQS::OS
