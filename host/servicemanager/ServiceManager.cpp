// SPDX-License-Identifier: Apache-2.0
//
// Service manager: the two tables and what happens to them.
#define LOG_TAG "servicemanager"

#include "ServiceManager.h"

#include <log/log.h>

#include <algorithm>

#include "Limits.h"

namespace servicemanager {

using android::IBinder;
using android::sp;
using android::wp;
using android::binder::Status;

namespace {

bool isNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("_-./").find(c) != std::string_view::npos;
}

bool isName(const std::string& name) {
    return !name.empty() && name.size() <= kMaxNameLength &&
           std::all_of(name.begin(), name.end(), isNameCharacter);
}

}  // namespace

ServiceManager::ServiceManager(std::unique_ptr<const Access> access) : mAccess(std::move(access)) {}

Status ServiceManager::getService(const std::string& name, sp<IBinder>* out) {
    // Services that the service manager itself would have to start are none of the host's.
    return checkService(name, out);
}

Status ServiceManager::checkService(const std::string& name, sp<IBinder>* out) {
    *out = nullptr;
    const auto found = mServices.find(name);
    if (found == mServices.end()) return Status::ok();
    if (mAccess->canFind(mAccess->caller(), found->second.allowIsolated)) {
        *out = found->second.binder;
    }
    return Status::ok();
}

Status ServiceManager::addService(const std::string& name, const sp<IBinder>& service,
                                  bool allowIsolated, int32_t dumpPriority) {
    const Caller caller = mAccess->caller();
    if (!mAccess->canAdd(caller, name)) {
        ALOGW("pid %d, uid %u may not add a service", caller.debugPid, caller.uid);
        return Status::fromExceptionCode(Status::EX_SECURITY, "an app may not add a service");
    }
    if (!isName(name)) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT, "not a service name");
    }
    if (service == nullptr) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT, "no binder");
    }
    const auto found = mServices.find(name);
    if (found == mServices.end() && mServices.size() >= kMaxServices) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE, "too many services");
    }
    if (!watch(service)) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE, "the binder is dead");
    }
    if (found != mServices.end()) {
        ALOGI("'%s' is replaced by pid %d", name.c_str(), caller.debugPid);
        unwatch(found->second.binder);
    }
    mServices.insert_or_assign(name, Service{.binder = service,
                                             .allowIsolated = allowIsolated,
                                             .dumpPriority = dumpPriority,
                                             .debugPid = caller.debugPid});
    notifyAll(name, service);
    return Status::ok();
}

Status ServiceManager::listServices(int32_t dumpPriority, std::vector<std::string>* out) {
    out->clear();
    for (const auto& [name, service] : mServices) {
        if (service.dumpPriority & dumpPriority) out->push_back(name);
    }
    return Status::ok();
}

Status ServiceManager::registerForNotifications(const std::string& name, const Callback& callback) {
    if (!isName(name)) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT, "not a service name");
    }
    if (callback == nullptr) {
        return Status::fromExceptionCode(Status::EX_NULL_POINTER, "no callback");
    }
    if (mCallbackCount >= kMaxCallbacks) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE, "too many callbacks");
    }
    if (!watch(IInterface::asBinder(callback))) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE, "the callback is dead");
    }
    mCallbacks[name].push_back(callback);
    ++mCallbackCount;

    sp<IBinder> service;
    Status status = checkService(name, &service);
    if (service != nullptr) notify(name, service, callback);
    return status;
}

Status ServiceManager::unregisterForNotifications(const std::string& name,
                                                  const Callback& callback) {
    const auto listed = mCallbacks.find(name);
    if (listed != mCallbacks.end()) {
        std::vector<Callback>& callbacks = listed->second;
        const sp<IBinder> wanted = IInterface::asBinder(callback);
        const auto found = std::find_if(callbacks.begin(), callbacks.end(), [&](const auto& each) {
            return IInterface::asBinder(each) == wanted;
        });
        if (found != callbacks.end()) {
            callbacks.erase(found);
            --mCallbackCount;
            if (callbacks.empty()) mCallbacks.erase(listed);
            unwatch(wanted);
            return Status::ok();
        }
    }
    return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE, "no such callback");
}

Status ServiceManager::isDeclared(const std::string& /*name*/, bool* out) {
    *out = false;
    return Status::ok();
}

Status ServiceManager::getDeclaredInstances(const std::string& /*iface*/,
                                            std::vector<std::string>* out) {
    out->clear();
    return Status::ok();
}

Status ServiceManager::updatableViaApex(const std::string& /*name*/,
                                        std::unique_ptr<std::string>* out) {
    out->reset();
    return Status::ok();
}

Status ServiceManager::getConnectionInfo(const std::string& /*name*/,
                                         std::unique_ptr<android::os::ConnectionInfo>* out) {
    out->reset();
    return Status::ok();
}

Status ServiceManager::registerClientCallback(
        const std::string& /*name*/, const sp<IBinder>& /*service*/,
        const sp<android::os::IClientCallback>& /*callback*/) {
    return Status::fromExceptionCode(Status::EX_UNSUPPORTED_OPERATION);
}

Status ServiceManager::tryUnregisterService(const std::string& /*name*/,
                                            const sp<IBinder>& /*service*/) {
    return Status::fromExceptionCode(Status::EX_UNSUPPORTED_OPERATION);
}

Status ServiceManager::getServiceDebugInfo(std::vector<android::os::ServiceDebugInfo>* out) {
    out->clear();
    for (const auto& [name, service] : mServices) {
        android::os::ServiceDebugInfo info;
        info.name = name;
        info.debugPid = service.debugPid;
        out->push_back(info);
    }
    return Status::ok();
}

void ServiceManager::binderDied(const wp<IBinder>& who) {
    std::erase_if(mServices, [&](const auto& each) {
        const auto& [name, service] = each;
        if (who != service.binder) return false;
        ALOGI("'%s' died", name.c_str());
        return true;
    });
    for (auto listed = mCallbacks.begin(); listed != mCallbacks.end();) {
        mCallbackCount -= std::erase_if(listed->second, [&](const Callback& each) {
            return who == IInterface::asBinder(each);
        });
        listed = listed->second.empty() ? mCallbacks.erase(listed) : std::next(listed);
    }
}

/** A binder of this process dies no earlier than the table does: there is nothing to watch. */
bool ServiceManager::watch(const sp<IBinder>& binder) {
    const android::status_t result = binder->linkToDeath(this);
    return result == android::OK || result == android::INVALID_OPERATION;
}

/** One watch of possibly several. When it is too late, the notice finds the binder gone. */
void ServiceManager::unwatch(const sp<IBinder>& binder) {
    binder->unlinkToDeath(wp<IBinder::DeathRecipient>(this));
}

void ServiceManager::notify(const std::string& name, const sp<IBinder>& service,
                            const Callback& callback) {
    const Status status = callback->onRegistration(name, service);
    if (!status.isOk()) {
        ALOGW("a watcher of '%s' was not told: %s", name.c_str(), status.toString8().string());
    }
}

void ServiceManager::notifyAll(const std::string& name, const sp<IBinder>& service) {
    const auto listed = mCallbacks.find(name);
    if (listed == mCallbacks.end()) return;
    // A copy: a watcher in this process may register or leave from within its callback.
    const std::vector<Callback> callbacks = listed->second;
    for (const Callback& callback : callbacks)
        notify(name, service, callback);
}

}  // namespace servicemanager
