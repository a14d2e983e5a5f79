// SPDX-License-Identifier: Apache-2.0
//
// Service process: registers a plain object and serves.
//
//      servicemanager_test_service NAME UID --ready-fd N
//
// Exit status: 10 less the exception when it is refused.
#include <android/os/IServiceManager.h>
#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

using android::IPCThreadState;
using android::ProcessState;
using android::sp;

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    const uid_t uid = static_cast<uid_t>(std::stoul(argv[2]));
    if (uid != geteuid() && setresuid(uid, uid, uid) != 0) return 2;
    const auto manager = android::interface_cast<android::os::IServiceManager>(
            ProcessState::self()->getContextObject(nullptr));
    if (manager == nullptr) return 3;
    const sp<android::IBinder> service = new android::BBinder;
    const auto status = manager->addService(argv[1], service, /*allowIsolated=*/false,
                                            android::IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT);
    // At once: a leak check at the end cannot trace a process that has changed its uid.
    if (!status.isOk()) _exit(10 - status.exceptionCode());
    ProcessState::self()->startThreadPool();
    if (write(std::stoi(argv[4]), "r", 1) != 1) return 4;
    IPCThreadState::self()->joinThreadPool();
    return EXIT_FAILURE;
}
