// SPDX-License-Identifier: Apache-2.0
// The simulated permission controller.
#include "services/PermissionController.h"

#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include <string>

namespace sim {
namespace {

constexpr int32_t kOperationAllowed = 0;

}  // namespace

using android::String16;
using android::String8;

bool PermissionController::checkPermission(const String16& permission, int32_t /*pid*/,
                                           int32_t uid) {
    return mWorld.get()->hasPermission(String8(permission).c_str(), uid);
}

int32_t PermissionController::noteOp(const String16&, int32_t, const String16&) {
    return kOperationAllowed;
}

void PermissionController::getPackagesForUid(const uid_t uid, android::Vector<String16>& packages) {
    for (const std::string& name : mWorld.get()->packagesOf(static_cast<int>(uid))) {
        packages.add(String16(name.c_str()));
    }
}

bool PermissionController::isRuntimePermission(const String16&) {
    return false;
}

int PermissionController::getPackageUid(const String16& package, int) {
    return mWorld.get()->uidOf(String8(package).c_str()).value_or(-1);
}

}  // namespace sim
