// SPDX-License-Identifier: Apache-2.0
//
// Service host over the platform's binder runtime.
#define LOG_TAG "ServiceHost"

#include <osutils/ServiceHost.h>

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <log/log.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <utils/Errors.h>
#include <utils/String16.h>

namespace NQS::OS {

using namespace android;

namespace {

[[noreturn]] void giveUp(std::string_view name, status_t error) {
    const int length = static_cast<int>(name.size());
    if (error == DEAD_OBJECT) {
        ALOGE("cannot register \"%.*s\": the service manager is not running: start "
              "servicemanager first",
              length, name.data());
    } else {
        ALOGE("cannot register \"%.*s\": the service manager answered %s (%d)", length, name.data(),
              strerror(-error), error);
    }
    exit(EXIT_FAILURE);
}

}  // namespace

ServiceHost::ServiceHost(const std::vector<Service>& services) {
    signal(SIGPIPE, SIG_IGN);
    const sp<IServiceManager> manager = defaultServiceManager();
    for (const auto& [name, service] : services) {
        if (manager == nullptr) giveUp(name, DEAD_OBJECT);
        const status_t error = manager->addService(String16(name.data(), name.size()), service,
                                                   /*allowIsolated=*/false,
                                                   IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT);
        if (error != OK) giveUp(name, error);
    }
}

void ServiceHost::startThreadPool() {
    ProcessState::self()->startThreadPool();
    IPCThreadState::self()->joinThreadPool();
}

}  // namespace NQS::OS
