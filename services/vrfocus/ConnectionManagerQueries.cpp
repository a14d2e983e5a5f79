// SPDX-License-Identifier: Apache-2.0
//
// System state tracker: its queries, the repair of the activity state, and the focus helper.
#include "ConnectionManager.h"

#include <osutils/Process.h>

#include <algorithm>
#include <memory>
#include <type_traits>
#include <utility>

namespace NQS::OS {

using android::sp;
using android::String16;
using android::app::IActivityManager;
using velmar::internal::IVrFocusHelper;

namespace {

/** Forgets the dead for good, and returns a copy of what remains in the collection's order. */
template <typename Clients>
std::vector<FocusClient> pruneAndCopy(ValueMutexBase<Clients>& clients) {
    return clients.access([](Clients& collection) {
        std::erase_if(collection, [](const FocusClient& client) {
            return !Process::isProcessAlive(client.pid);
        });
        return std::vector<FocusClient>(collection.begin(), collection.end());
    });
}

std::vector<FocusClient> copy(const ValueMutexBase<std::set<FocusClient>>& clients) {
    return clients.access([](const std::set<FocusClient>& set) {
        return std::vector<FocusClient>(set.begin(), set.end());
    });
}

/**
 * Sends a notice with a package name that may be absent. Generators differ in the type that they
 * give such a string: an optional, or a unique pointer.
 */
template <typename Nullable>
void sendPackage(const sp<IVrFocusHelper>& helper,
                 android::binder::Status (IVrFocusHelper::*notice)(const Nullable&),
                 std::optional<String16> packageName) {
    if (helper == nullptr) return;
    if constexpr (std::is_same_v<Nullable, std::optional<String16>>) {
        (void)((*helper).*notice)(packageName);
    } else {
        const Nullable package =
                packageName ? std::make_unique<String16>(std::move(*packageName)) : nullptr;
        (void)((*helper).*notice)(package);
    }
}

}  // namespace

std::vector<FocusClient> ConnectionManager::getClientsWithForegroundActivity() {
    return pruneAndCopy(mForegroundActivities);
}

std::vector<FocusClient> ConnectionManager::getClientsCurrentlyRendering() {
    return pruneAndCopy(mRenderingClients);
}

std::vector<FocusClient> ConnectionManager::getClientsWithForegroundPanelApp() {
    return pruneAndCopy(mForegroundPanelApps);
}

FocusClient ConnectionManager::getClientWithWindowFocus() const {
    return mWindowFocus.load(std::memory_order_acquire);
}

std::vector<FocusClient> ConnectionManager::getClientsWithTopActivities() const {
    return copy(mTopActivityClients);
}

std::vector<FocusClient> ConnectionManager::getAllClientsWithTopActivities() const {
    return copy(mAllTopActivityClients);
}

String16 ConnectionManager::getTopActivityOnPrimaryDisplay() {
    const sp<IActivityManager> activityManager = mActivityManager.getService();
    if (activityManager == nullptr) return {};
    String16 answer;
    if (!activityManager->getTopActivityOnPrimaryDisplay(&answer).isOk()) return {};
    return answer;
}

void ConnectionManager::maybeUpdateActivityState() {
    const sp<IActivityManager> activityManager = mActivityManager.getService();
    if (activityManager == nullptr) return;
    const auto candidate = mAllTopActivityClients.access(
            [&](const std::set<FocusClient>& clients) -> std::optional<FocusClient> {
                for (const FocusClient& client : clients) {
                    if (isOnPrimaryDisplay(*activityManager, client)) return client;
                }
                return std::nullopt;
            });
    if (!candidate) return;
    mForegroundActivities.access([&](std::vector<FocusClient>& clients) {
        if (std::find(clients.begin(), clients.end(), *candidate) == clients.end()) {
            clients.push_back(*candidate);
        }
    });
}

void ConnectionManager::forwardImmersiveAppChanged(std::optional<String16> packageName) {
    sendPackage(mFocusHelper.getService(), &IVrFocusHelper::onImmersiveAppChanged,
                std::move(packageName));
}

void ConnectionManager::forwardTopActivityChanged(std::optional<String16> packageName) {
    sendPackage(mFocusHelper.getService(), &IVrFocusHelper::onTopActivityChanged,
                std::move(packageName));
}

}  // namespace NQS::OS
