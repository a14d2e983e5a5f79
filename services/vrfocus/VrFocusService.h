// SPDX-License-Identifier: Apache-2.0
//
// Focus service: the daemon's front to other processes ("vrfocus").
//
// Every call is checked here, once: who calls, with which permission, with which focus type. Then
// the policy or the tracker does the work. The service also keeps other processes' listeners and
// tells them, and the system's focus helper, whenever focus, the top activity or the immersive app
// may have changed:
//
//   notice of the tracker ----> notifyAll() ----> focus listeners
//                                   |
//   setAppState() ----> notifyTopActivityListeners() ----> policy ----> top activity listeners
//                                                                 ----> focus helper
//
// Threads: calls and notices come on any number of binder threads. Listeners and the helper are
// called with the listener mutex held, which is why their interfaces are one-way. What listeners
// are told the policy is asked before, without it: of two passes at once, the one with the older
// answer may end last. For the helper, and for a dump, it is asked under the mutex.
//
// Life: the tracker holds the two change callbacks for good, and a death notice may be under way
// at any time, so both reach the service through weak references: a notice that comes late finds
// nobody. At most it keeps the service for the time of its own run.
#pragma once

#include <android-base/thread_annotations.h>
#include <binder/IBinder.h>
#include <utils/String16.h>
#include <utils/Vector.h>
#include <velmar/internal/BnVrFocusService.h>

#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "ConnectionManager.h"
#include "FocusPolicy.h"
#include "VrFocusEventReporter.h"

namespace NQS::OS {

/**
 * Refusals carry an exception code and no message; out values are then left as they were, save for
 * the result flags of the listener methods, which are always set.
 */
class VrFocusService : public velmar::internal::BnVrFocusService {
public:
    /**
     * Shares both and installs the tracker's change callbacks in place of what they held.
     *
     * Whoever makes it takes the first reference before a notice can come: a notice holds one for
     * its run and would otherwise drop the last. In the daemon the thread pool starts later.
     */
    VrFocusService(std::shared_ptr<ConnectionManager> connectionManager,
                   std::shared_ptr<FocusPolicy> policy);
    ~VrFocusService() override;

    android::binder::Status getClientFocusStatus(int32_t focusType,
                                                 const std::vector<int32_t>& pids,
                                                 std::vector<ClientStatus>* out) override;
    android::binder::Status registerVrFocusListener(
            const android::sp<velmar::internal::IVrFocusListener>& listener, int32_t focusType,
            bool* outResult) override EXCLUDES(mListeners.mutex);
    android::binder::Status unregisterVrFocusListener(int32_t focusType, bool* outResult) override
            EXCLUDES(mListeners.mutex);
    android::binder::Status registerVrTopActivityListener(
            const android::sp<velmar::internal::IVrTopActivityListener>& listener,
            bool* outResult) override EXCLUDES(mListeners.mutex);
    android::binder::Status unregisterVrTopActivityListener(bool* outResult) override
            EXCLUDES(mListeners.mutex);
    android::binder::Status setAppState(int32_t pid, int32_t state) override;
    android::binder::Status getImmersiveApp(ImmersiveApp* out) override;
    android::binder::Status getTopActivity(android::String16* out) override;
    android::binder::Status getForegroundApps(std::vector<android::String16>* out) override;
    android::binder::Status grantTrackingServiceAccess(int32_t displayId) override;
    android::binder::Status revokeTrackingServiceAccess(int32_t displayId) override;

    /**
     * Writes the state to `fd`: as text without an argument and for "-a", as JSON for "json".
     * Wrong arguments are answered on `fd` and are no failure; a caller without the permission to
     * dump gets PERMISSION_DENIED and no text.
     */
    android::status_t dump(int fd, const android::Vector<android::String16>& args) override
            EXCLUDES(mListeners.mutex);

private:
    /** Linked to the binder of every registered listener; one for the service's whole life. */
    class DeathNotifier : public android::IBinder::DeathRecipient {
    public:
        explicit DeathNotifier(const android::wp<VrFocusService>& service) : mService(service) {}
        void binderDied(const android::wp<android::IBinder>& who) override;

    private:
        const android::wp<VrFocusService> mService;
    };

    /** Keyed by the pid that registered, as its transaction named it. */
    struct ListenerState {
        using FocusListeners = std::map<int32_t, android::sp<velmar::internal::IVrFocusListener>>;
        using TopActivityListeners =
                std::map<int32_t, android::sp<velmar::internal::IVrTopActivityListener>>;

        /** A type's map comes with the first (un)registration for it and stays when empty. */
        std::map<FocusType, FocusListeners> focus GUARDED_BY(mutex);
        TopActivityListeners topActivity GUARDED_BY(mutex);
        /** Guards both maps; held while listeners and the helper are told and a dump is made. */
        std::mutex mutex;
    };

    void removeListenersForBinder(const android::wp<android::IBinder>& binder)
            EXCLUDES(mListeners.mutex);
    void notifyAll() EXCLUDES(mListeners.mutex);
    void notifyTopActivityListeners() EXCLUDES(mListeners.mutex);

    /** The dump's whole answer to these arguments, good or bad, into a file that cannot block. */
    void writeReport(int fd, const android::Vector<android::String16>& args)
            EXCLUDES(mListeners.mutex);
    void dumpTextLocked(int fd, const android::Vector<android::String16>& args)
            REQUIRES(mListeners.mutex);
    void dumpJsonLocked(int fd) REQUIRES(mListeners.mutex);

    // Released last to first.
    const std::shared_ptr<ConnectionManager> mConnectionManager;
    const std::shared_ptr<FocusPolicy> mPolicy;
    const std::unique_ptr<VrFocusEventReporter> mEventReporter;
    const android::sp<DeathNotifier> mDeathNotifier;
    ListenerState mListeners;
};

}  // namespace NQS::OS
