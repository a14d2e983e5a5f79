// SPDX-License-Identifier: Apache-2.0
//
// System state tracker: the daemon's picture of the rest of the system.
//
//      activity manager --- process observer ---+
//      window manager ----- layout observer ----+--> collections of clients --> queries
//      display manager ---- display callback ---+             |
//      focus service ------ XR session states --+             +--> change callbacks
//
// Notices fill a handful of collections; the policy reads them through queries that return copies.
// After a notice that may have changed the picture, one of two callbacks runs, changed or not: the
// callback's owner decides what is new.
//
// Failures: a call to a platform service that fails counts as one that answered false or nothing;
// so does a service that is not connected. Neither is logged, but for the permission controller.
//
// Threads: any, for every operation. Notices come on binder threads, connections are made on
// threads of their own. Each collection has its own mutex and no operation holds two of them. The
// set of displays is locked across its two outgoing calls, the set of all clients on top across the
// questions of maybeUpdateActivityState(): the observers of the called services must therefore be
// one-way. The callbacks run with no lock held, on the thread of the notice.
#pragma once

#include "BinderClient.h"
#include "FocusClient.h"
#include "ValueMutex.h"

#include <android/app/IActivityManager.h>
#include <android/app/IProcessObserver.h>
#include <android/content/pm/IPackageManagerNative.h>
#include <android/hardware/display/IDisplayManager.h>
#include <binder/IPermissionController.h>
#include <utils/String16.h>
#include <utils/StrongPointer.h>
#include <utils/Vector.h>
#include <velmar/internal/IVelmarWindowManager.h>
#include <velmar/internal/IVrFocusHelper.h>
#include <velmar/internal/IWindowLayoutObserver.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <vector>

namespace NQS::OS {

class ConnectionManager {
public:
    /**
     * Looks each of the six services up once, one after the other; whatever is missing is looked
     * for in the background from then on. Observers are registered with what was found before
     * the constructor returns.
     */
    ConnectionManager();
    /** Observers stay registered: whoever may still deliver a notice must be gone before. */
    virtual ~ConnectionManager();
    ConnectionManager(const ConnectionManager&) = delete;
    ConnectionManager& operator=(const ConnectionManager&) = delete;

    /** Oldest first; a client that came up twice is there twice. Forgets dead processes. */
    virtual std::vector<FocusClient> getClientsWithForegroundActivity();
    /** Clients whose XR session is visible, ascending. Forgets dead processes. */
    virtual std::vector<FocusClient> getClientsCurrentlyRendering();
    /** The owner of the focused window; (0, 0) when none is known. */
    virtual FocusClient getClientWithWindowFocus() const;
    /** Clients on top of a tracked display, ascending; dead ones may be among them. */
    virtual std::vector<FocusClient> getClientsWithTopActivities() const;
    /** Clients with a foreground activity anywhere, ascending; dead ones may be among them. */
    virtual std::vector<FocusClient> getAllClientsWithTopActivities() const;
    /**
     * Lets clients on the display have tracking service access. Display 0 always has it.
     *
     * The first secondary display starts the watch for removed displays. The display manager must
     * be connected then: the process ends if it is not.
     */
    virtual void grantTrackingServiceAccess(int displayId);
    /** Takes the access back; the last secondary display ends the watch, on the same condition. */
    virtual void revokeTrackingServiceAccess(int displayId);

    /** Clients that run a foreground panel service, ascending. Forgets dead processes. */
    std::vector<FocusClient> getClientsWithForegroundPanelApp();
    /** Package of the top activity on the primary display; empty when unknown. */
    android::String16 getTopActivityOnPrimaryDisplay();

    /** Tells the focus helper, if it is connected; absent means none. Never waits for it. */
    void forwardImmersiveAppChanged(std::optional<android::String16> packageName);
    void forwardTopActivityChanged(std::optional<android::String16> packageName);

    /** Whether the process has the permission; no while there is no permission controller. */
    bool checkPermission(const android::String16& permission, int pid, int uid);
    /** Leaves the vector as it is while there is no permission controller. */
    void getPackagesForUid(int uid, android::Vector<android::String16>& packages);

    /** A client reports its XR session: 0 visible, 2 stopping; others are ignored. */
    void onXrSessionStateChanged(int pid, int uid, int state);
    void onForegroundActivitiesChanged(int pid, int uid, bool foregroundActivities);
    void onDisplayRemoved(int displayId);
    /**
     * Sees to it that a client with an activity on the primary display is among those with a
     * foreground activity: the lowest one by (uid, pid), added as the newest.
     */
    void maybeUpdateActivityState();

    /**
     * Run after notices about activities and panel services, and about window focus. Not guarded:
     * assigned once, before any notice can arrive.
     */
    std::function<void()> activityStateCallback;
    std::function<void()> windowFocusCallback;

private:
    class ProcessObserverWrapper;
    class WindowLayoutObserverWrapper;
    class DisplayManagerCallback;

    void onActivityManagerConnected(const android::sp<android::app::IActivityManager>& service);
    void onActivityManagerDisconnected();
    void onVelmarWindowManagerConnected(
            const android::sp<velmar::internal::IVelmarWindowManager>& service);
    void onVelmarWindowManagerDisconnected();
    void onForegroundServicesChanged(int pid, int uid);
    void onFocusedWindowChanged(FocusClient client);

    /** The tracked displays on which the process has a top activity. */
    std::vector<int> findTrackedDisplays(android::app::IActivityManager& activityManager, int pid);
    static bool isOnPrimaryDisplay(android::app::IActivityManager& activityManager,
                                   const FocusClient& client);
    static void updateClient(ValueMutexBase<std::set<FocusClient>>& clients, FocusClient client,
                             bool present);
    /** Called with mTrackingDisplays locked, so that the mask always matches the set. */
    void setDisplayEventMaskLocked(int64_t eventMask);

    ValueMutexBase<std::vector<FocusClient>> mForegroundActivities;
    ValueMutexBase<std::set<FocusClient>> mForegroundPanelApps;
    ValueMutexBase<std::set<FocusClient>> mTopActivityClients;
    ValueMutexBase<std::set<FocusClient>> mAllTopActivityClients;
    ValueMutexBase<std::set<FocusClient>> mRenderingClients;
    std::atomic<FocusClient> mWindowFocus{FocusClient{}};
    static_assert(std::atomic<FocusClient>::is_always_lock_free);
    /** Always holds 0, the main display. Its size tells whether removed displays are watched. */
    ValueMutexBase<std::set<int>> mTrackingDisplays;

    // Handles to the observers of the newest connection. Before the connections: a connection
    // fills them from its own thread as soon as it exists.
    ValueMutexBase<android::sp<velmar::internal::IWindowLayoutObserver>> mWindowLayoutObserver;
    ValueMutexBase<android::sp<android::app::IProcessObserver>> mProcessObserver;

    BinderClient<android::app::IActivityManager> mActivityManager;
    BinderClient<android::hardware::display::IDisplayManager> mDisplayManager;
    BinderClient<android::content::pm::IPackageManagerNative> mPackageManager;
    BinderClient<android::IPermissionController> mPermissionController;
    BinderClient<velmar::internal::IVelmarWindowManager> mWindowManager;
    BinderClient<velmar::internal::IVrFocusHelper> mFocusHelper;

    /** Never changes after construction. */
    android::sp<DisplayManagerCallback> mDisplayCallback;
};

}  // namespace NQS::OS
