// SPDX-License-Identifier: Apache-2.0
//
// Observers of the system state tracker: what it registers with the platform services.
//
// Each passes its notices on to the tracker and answers ok, whatever came of them. They hold a
// plain reference: the tracker lives as long as the process serves.
#pragma once

#include "ConnectionManager.h"

#include <android/app/BnProcessObserver.h>
#include <android/hardware/display/BnDisplayManagerCallback.h>
#include <velmar/internal/BnWindowLayoutObserver.h>

namespace NQS::OS {

class ConnectionManager::ProcessObserverWrapper : public android::app::BnProcessObserver {
public:
    explicit ProcessObserverWrapper(ConnectionManager& owner) : mOwner(owner) {}

    android::binder::Status onForegroundActivitiesChanged(int32_t pid, int32_t uid,
                                                          bool foregroundActivities) override;
    android::binder::Status onForegroundServicesChanged(int32_t pid, int32_t uid,
                                                        int32_t serviceTypes) override;
    /** Nothing to do: queries forget dead processes. */
    android::binder::Status onProcessDied(int32_t pid, int32_t uid) override;

private:
    ConnectionManager& mOwner;
};

class ConnectionManager::WindowLayoutObserverWrapper
      : public velmar::internal::BnWindowLayoutObserver {
public:
    explicit WindowLayoutObserverWrapper(ConnectionManager& owner) : mOwner(owner) {}

    android::binder::Status onFocusedWindowChanged(const android::sp<android::IBinder>& windowToken,
                                                   int32_t uid, int32_t pid) override;

private:
    ConnectionManager& mOwner;
};

class ConnectionManager::DisplayManagerCallback
      : public android::hardware::display::BnDisplayManagerCallback {
public:
    explicit DisplayManagerCallback(ConnectionManager& owner) : mOwner(owner) {}

    android::binder::Status onDisplayEvent(int32_t displayId, int32_t event) override;

private:
    ConnectionManager& mOwner;
};

}  // namespace NQS::OS
