// SPDX-License-Identifier: Apache-2.0
//
// System state tracker: its connections, and what the notices do to the collections.
#define LOG_TAG "VrFocus"

#include "ConnectionManager.h"

#include "BindReceiver.h"
#include "ConnectionManagerObservers.h"

#include <log/log.h>

#include <algorithm>
#include <chrono>

namespace NQS::OS {

using android::sp;
using android::app::IActivityManager;
using velmar::internal::IVelmarWindowManager;

namespace {

constexpr std::chrono::milliseconds kRetryInterval{500};
constexpr int kMainDisplay = 0;

constexpr int kXrSessionStateVisible = 0;
constexpr int kXrSessionStateStopping = 2;

using WhenActivityManagerConnected =
        BindReceiver<ConnectionManager, void(const sp<IActivityManager>&)>;
using WhenWindowManagerConnected =
        BindReceiver<ConnectionManager, void(const sp<IVelmarWindowManager>&)>;
using WhenDisconnected = BindReceiver<ConnectionManager, void()>;

template <typename Observer>
void replaceObserver(ValueMutexBase<sp<Observer>>& holder, sp<Observer> observer) {
    // The earlier one leaves through the argument: its last reference goes without the lock.
    holder.access([&observer](sp<Observer>& held) { std::swap(held, observer); });
}

}  // namespace

ConnectionManager::ConnectionManager()
      : mActivityManager(
                "activity", kRetryInterval,
                WhenActivityManagerConnected(*this, &ConnectionManager::onActivityManagerConnected),
                WhenDisconnected(*this, &ConnectionManager::onActivityManagerDisconnected)),
        mDisplayManager("display", kRetryInterval),
        mPackageManager("package_native", kRetryInterval),
        mPermissionController("permission", kRetryInterval),
        mWindowManager(
                "VelmarWindowManager", kRetryInterval,
                WhenWindowManagerConnected(*this,
                                           &ConnectionManager::onVelmarWindowManagerConnected),
                WhenDisconnected(*this, &ConnectionManager::onVelmarWindowManagerDisconnected)),
        mFocusHelper("vrfocushelper", kRetryInterval) {
    // Observers that are registered by now live on by their services' references alone.
    replaceObserver<velmar::internal::IWindowLayoutObserver>(mWindowLayoutObserver, nullptr);
    replaceObserver<android::app::IProcessObserver>(mProcessObserver, nullptr);
    mTrackingDisplays.access([](std::set<int>& displays) { displays.insert(kMainDisplay); });
    mDisplayCallback = new DisplayManagerCallback(*this);
}

ConnectionManager::~ConnectionManager() {
    // The connections go after this body, the last one first: none has a thread after its end.
    mDisplayCallback = nullptr;
    replaceObserver<android::app::IProcessObserver>(mProcessObserver, nullptr);
    replaceObserver<velmar::internal::IWindowLayoutObserver>(mWindowLayoutObserver, nullptr);
}

void ConnectionManager::onActivityManagerConnected(const sp<IActivityManager>& service) {
    const sp<android::app::IProcessObserver> observer = new ProcessObserverWrapper(*this);
    replaceObserver(mProcessObserver, observer);
    (void)service->registerProcessObserver(observer);
}

void ConnectionManager::onActivityManagerDisconnected() {
    mForegroundActivities.access([](std::vector<FocusClient>& clients) { clients.clear(); });
    mForegroundPanelApps.access([](std::set<FocusClient>& clients) { clients.clear(); });
    mTopActivityClients.access([](std::set<FocusClient>& clients) { clients.clear(); });
}

void ConnectionManager::onVelmarWindowManagerConnected(const sp<IVelmarWindowManager>& service) {
    const sp<velmar::internal::IWindowLayoutObserver> observer =
            new WindowLayoutObserverWrapper(*this);
    replaceObserver(mWindowLayoutObserver, observer);
    bool result = false;
    (void)service->registerWindowLayoutObserver(observer, &result);
}

void ConnectionManager::onVelmarWindowManagerDisconnected() {
    mWindowFocus.store(FocusClient{}, std::memory_order_release);
}

void ConnectionManager::onForegroundServicesChanged(int pid, int uid) {
    const sp<IActivityManager> activityManager = mActivityManager.getService();
    if (activityManager == nullptr) return;
    bool answer = false;
    const bool hasPanel =
            activityManager->hasForegroundPanelService(pid, uid, &answer).isOk() && answer;
    updateClient(mForegroundPanelApps, {.uid = uid, .pid = pid}, hasPanel);
    if (activityStateCallback) activityStateCallback();
}

void ConnectionManager::onForegroundActivitiesChanged(int pid, int uid, bool fg) {
    const FocusClient client{.uid = uid, .pid = pid};
    std::vector<int> displays;
    bool onMain = false;
    if (const sp<IActivityManager> activityManager = mActivityManager.getService()) {
        displays = findTrackedDisplays(*activityManager, pid);
        onMain = isOnPrimaryDisplay(*activityManager, client);
    }
    const bool main =
            onMain || std::find(displays.begin(), displays.end(), kMainDisplay) != displays.end();
    // For a client on the main display one entry is taken for that display, by design also where
    // only the second answer says that it is there.
    const bool secondary = main ? displays.size() > 1 : !displays.empty();
    ALOGD("onForegroundActivitiesChanged: uid: %d, pid: %d, fg: %d, display main: %d, "
          "secondary: %d",
          uid, pid, fg, main, secondary);
    mForegroundActivities.access([&](std::vector<FocusClient>& clients) {
        if (main && fg) {
            clients.push_back(client);
        } else {
            std::erase(clients, client);
        }
    });
    updateClient(mTopActivityClients, client, fg && (main || secondary));
    updateClient(mAllTopActivityClients, client, fg);
    if (activityStateCallback) activityStateCallback();
}

std::vector<int> ConnectionManager::findTrackedDisplays(IActivityManager& activityManager,
                                                        int pid) {
    return mTrackingDisplays.access([&](const std::set<int>& tracked) {
        // A local that counts only if the call succeeds: a reply may fail half way.
        std::vector<int32_t> answer;
        const bool isOk = activityManager
                                  .getDisplaysWithTopActivities(
                                          pid, {tracked.begin(), tracked.end()}, &answer)
                                  .isOk();
        return isOk ? answer : std::vector<int>{};
    });
}

bool ConnectionManager::isOnPrimaryDisplay(IActivityManager& activityManager,
                                           const FocusClient& client) {
    bool answer = false;
    return activityManager.hasActivityOnPrimaryDisplay(client.pid, client.uid, &answer).isOk() &&
           answer;
}

void ConnectionManager::onFocusedWindowChanged(FocusClient client) {
    mWindowFocus.store(client, std::memory_order_release);
    if (windowFocusCallback) windowFocusCallback();
}

void ConnectionManager::onDisplayRemoved(int displayId) {
    ALOGD("onDisplayRemoved: %d", displayId);
    revokeTrackingServiceAccess(displayId);
}

void ConnectionManager::onXrSessionStateChanged(int pid, int uid, int state) {
    const FocusClient client{.uid = uid, .pid = pid};
    if (state == kXrSessionStateStopping) {
        ALOGD("Received XR_SESSION_STATE_STOPPING for pid: %d, uid: %d", pid, uid);
        updateClient(mRenderingClients, client, /*present=*/false);
        maybeUpdateActivityState();
    } else if (state == kXrSessionStateVisible) {
        ALOGD("Received XR_SESSION_STATE_VISIBLE for pid: %d, uid: %d", pid, uid);
        updateClient(mRenderingClients, client, /*present=*/true);
    }
}

void ConnectionManager::updateClient(ValueMutexBase<std::set<FocusClient>>& clients,
                                     FocusClient client, bool present) {
    clients.access([&](std::set<FocusClient>& set) {
        if (present) {
            set.insert(client);
        } else {
            set.erase(client);
        }
    });
}

}  // namespace NQS::OS
