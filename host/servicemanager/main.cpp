// SPDX-License-Identifier: Apache-2.0
//
// The service manager's process. One thread: no further ones may be asked for, and this one serves.
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <driver/AssignedUids.h>
#include <driver/Driver.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "Options.h"
#include "ServiceManager.h"

using android::IPCThreadState;
using android::IServiceManager;
using android::ProcessState;
using android::sp;
using servicemanager::Access;
using servicemanager::Options;
using servicemanager::ServiceManager;

namespace {

constexpr int kUsageError = 2;

/** Its own name among the others, so that it can be listed and asked like any of them. */
bool addItself(const sp<ServiceManager>& manager) {
    const auto status = manager->addService("manager", manager, /*allowIsolated=*/false,
                                            IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT);
    if (!status.isOk()) fprintf(stderr, "servicemanager: %s\n", status.toString8().string());
    return status.isOk();
}

bool tellReady(int fd) {
    const bool told = TEMP_FAILURE_RETRY(write(fd, "r", 1)) == 1;
    if (!told) fprintf(stderr, "servicemanager: --ready-fd %d: %s\n", fd, strerror(errno));
    close(fd);
    return told;
}

/** Why the role was not given. A kernel gives it only to the user who had it first since boot. */
std::string reasonOf(int error) {
    if (error == EBUSY) return "another one is running";
    if (error == EPERM) return "uid " + std::to_string(geteuid()) + " may not be the one";
    return std::string("cannot serve: ") + strerror(error);
}

/** Under which its own calls would arrive: what a hub vouches for counts, and the kernel's not. */
uid_t ownUid() {
    // That there is none, or no hub at all, is for others to say.
    std::string unsaid;
    const auto uids = binderhost::AssignedUids::open(binderhost::driverPath(), &unsaid);
    return uids == nullptr ? geteuid() : uids->ofThisProcess();
}

int serve(const Options& options) {
    const sp<ProcessState> process = ProcessState::self();
    if (process->setThreadPoolMaxThreadCount(0) != android::OK) {
        fprintf(stderr, "servicemanager: cannot do without further threads\n");
        return EXIT_FAILURE;
    }
    const sp<ServiceManager> manager(new ServiceManager(std::make_unique<Access>(ownUid())));
    if (!addItself(manager)) return EXIT_FAILURE;
    IPCThreadState::self()->setTheContextObject(manager);
    if (!process->becomeContextManager()) {
        fprintf(stderr, "servicemanager: %s on %s\n", reasonOf(errno).c_str(),
                process->getDriverName().string());
        return EXIT_FAILURE;
    }
    if (options.readyFd && !tellReady(*options.readyFd)) return EXIT_FAILURE;
    IPCThreadState::self()->joinThreadPool();
    fprintf(stderr, "servicemanager: %s is gone\n", process->getDriverName().string());
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    // A reader that goes away must not take the service manager with it.
    signal(SIGPIPE, SIG_IGN);
    std::string error;
    const auto options = servicemanager::parseOptions({argv + 1, argv + argc}, &error);
    if (!options) {
        fprintf(stderr, "servicemanager: %s\n%s", error.c_str(), servicemanager::kUsage);
        return kUsageError;
    }
    if (options->help) {
        fputs(servicemanager::kUsage, stdout);
        return EXIT_SUCCESS;
    }
    return serve(*options);
}
