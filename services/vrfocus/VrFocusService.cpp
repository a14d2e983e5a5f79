// SPDX-License-Identifier: Apache-2.0
//
// Focus service: the interface's queries, app states and tracking access.
#define LOG_TAG "VrFocus"

#include "VrFocusService.h"

#include <binder/Status.h>
#include <log/log.h>
#include <osutils/Process.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "VrFocusServiceAccess.h"

namespace NQS::OS {

using android::String16;
using android::wp;
using android::binder::Status;

namespace {

// What a client says of its XR session; other states are accepted and mean nothing here.
constexpr int32_t kSessionVisible = 0;
constexpr int32_t kSessionStopping = 2;

constexpr int32_t kMainDisplay = 0;

}  // namespace

VrFocusService::VrFocusService(std::shared_ptr<ConnectionManager> connectionManager,
                               std::shared_ptr<FocusPolicy> policy)
      : mConnectionManager(std::move(connectionManager)),
        mPolicy(std::move(policy)),
        mEventReporter(std::make_unique<VrFocusEventReporter>(
                std::make_shared<VrFocusEventReporter::Logger>())),
        mDeathNotifier(new DeathNotifier(wp<VrFocusService>(this))) {
    const auto notify = [service = wp<VrFocusService>(this)] {
        if (const auto alive = service.promote()) alive->notifyAll();
    };
    mConnectionManager->activityStateCallback = notify;
    mConnectionManager->windowFocusCallback = notify;
}

VrFocusService::~VrFocusService() = default;

Status VrFocusService::getClientFocusStatus(int32_t focusType, const std::vector<int32_t>& pids,
                                            std::vector<ClientStatus>* out) {
    if (!checkCallingPermission(CallerPermission::ReadFocusState)) {
        return Status::fromExceptionCode(Status::EX_SECURITY);
    }
    if (!isFocusType(focusType)) return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT);
    std::vector<ClientStatus> statuses;
    mPolicy->computeFocusState(static_cast<FocusType>(focusType), pids, statuses);
    *out = std::move(statuses);
    return Status::ok();
}

Status VrFocusService::setAppState(int32_t pid, int32_t state) {
    if (!isCallingPid(pid)) return Status::fromExceptionCode(Status::EX_SECURITY);
    const std::optional<int> uid = Process::getProcessUid(pid);
    // The caller waits for this very answer: a system that cannot say who it is, is broken.
    LOG_ALWAYS_FATAL_IF(!uid.has_value(), "setAppState: the calling process %d has no uid", pid);
    mConnectionManager->onXrSessionStateChanged(pid, *uid, state);
    if (state == kSessionVisible || state == kSessionStopping) {
        notifyTopActivityListeners();
        std::optional<ImmersiveApp> app = mPolicy->getImmersiveApp();
        mEventReporter->reportImmersiveAppUpdate(std::move(app), mPolicy->getTopActivity());
    }
    return Status::ok();
}

Status VrFocusService::getImmersiveApp(ImmersiveApp* out) {
    if (!checkCallingPermission(CallerPermission::ReadFocusState)) {
        return Status::fromExceptionCode(Status::EX_SECURITY);
    }
    std::optional<ImmersiveApp> app = mPolicy->getImmersiveApp();
    if (!app) return Status::fromExceptionCode(Status::EX_NULL_POINTER);
    *out = std::move(*app);
    return Status::ok();
}

Status VrFocusService::getTopActivity(String16* out) {
    if (!checkCallingPermission(CallerPermission::ReadFocusState)) {
        return Status::fromExceptionCode(Status::EX_SECURITY);
    }
    *out = mPolicy->getTopActivity();
    return Status::ok();
}

Status VrFocusService::getForegroundApps(std::vector<String16>* out) {
    if (!checkCallingPermission(CallerPermission::ReadFocusState)) {
        return Status::fromExceptionCode(Status::EX_SECURITY);
    }
    std::vector<String16> apps;
    for (const FocusClient& client : mConnectionManager->getClientsCurrentlyRendering()) {
        const std::string name = Process::getProcessName(client.pid, /*full=*/true);
        apps.emplace_back(name.data(), name.size());
    }
    *out = std::move(apps);
    return Status::ok();
}

Status VrFocusService::grantTrackingServiceAccess(int32_t displayId) {
    if (!checkCallingPermission(CallerPermission::GrantTrackingServiceAccessToDisplay)) {
        return Status::fromExceptionCode(Status::EX_SECURITY);
    }
    if (displayId == kMainDisplay) mPolicy->setMainDisplayFocus(true);
    mConnectionManager->grantTrackingServiceAccess(displayId);
    return Status::ok();
}

Status VrFocusService::revokeTrackingServiceAccess(int32_t displayId) {
    if (!checkCallingPermission(CallerPermission::GrantTrackingServiceAccessToDisplay)) {
        return Status::fromExceptionCode(Status::EX_SECURITY);
    }
    if (displayId == kMainDisplay) mPolicy->setMainDisplayFocus(false);
    mConnectionManager->revokeTrackingServiceAccess(displayId);
    return Status::ok();
}

}  // namespace NQS::OS
