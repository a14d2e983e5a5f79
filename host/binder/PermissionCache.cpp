// SPDX-License-Identifier: Apache-2.0
//
// Answers of the permission controller, per (permission, uid).
#include <android-base/thread_annotations.h>
#include <binder/IPCThreadState.h>
#include <binder/IPermissionController.h>
#include <binder/IServiceManager.h>
#include <binder/PermissionCache.h>
#include <log/log.h>
#include <unistd.h>
#include <utils/String8.h>

#include <map>
#include <mutex>
#include <optional>
#include <utility>

namespace android {
namespace {

/** Never held while the controller is asked. */
std::mutex gLock;

using Answers = std::map<std::pair<String16, uid_t>, bool>;

Answers& answersLocked() REQUIRES(gLock);

Answers& answersLocked() {
    // Never destroyed: threads may ask until the process has ended.
    static Answers* const answers = new Answers();
    return *answers;
}

std::optional<bool> remembered(const String16& permission, uid_t uid) {
    std::lock_guard lock(gLock);
    const auto found = answersLocked().find({permission, uid});
    if (found == answersLocked().end()) return std::nullopt;
    return found->second;
}

void remember(const String16& permission, uid_t uid, bool granted) {
    std::lock_guard lock(gLock);
    answersLocked().insert_or_assign({permission, uid}, granted);
}

}  // namespace

bool PermissionCache::checkPermission(const String16& permission, pid_t pid, uid_t uid) {
    if (pid <= 0) return false;
    if (pid == getpid()) return true;
    if (const std::optional<bool> known = remembered(permission, uid)) return *known;

    static const String16 kController("permission");
    const sp<IBinder> binder = defaultServiceManager()->checkService(kController);
    if (binder == nullptr) {
        ALOGW("no permission controller to ask about %s", String8(permission).string());
        return false;
    }
    const bool granted = interface_cast<IPermissionController>(binder)->checkPermission(
            permission, pid, int32_t(uid));
    // The interface does not tell a denial from a call that failed; a failed one is no answer.
    if (!granted && binder->pingBinder() != OK) return false;
    remember(permission, uid, granted);
    return granted;
}

bool PermissionCache::checkCallingPermission(const String16& permission) {
    int32_t pid = 0;
    int32_t uid = 0;
    return checkCallingPermission(permission, &pid, &uid);
}

bool PermissionCache::checkCallingPermission(const String16& permission, int32_t* outPid,
                                             int32_t* outUid) {
    const IPCThreadState* thread = IPCThreadState::self();
    *outPid = thread->getCallingPid();
    *outUid = int32_t(thread->getCallingUid());
    const bool granted = checkPermission(permission, *outPid, uid_t(*outUid));
    ALOGW_IF(!granted, "permission %s is denied to pid %d, uid %d", String8(permission).string(),
             *outPid, *outUid);
    return granted;
}

}  // namespace android
