// SPDX-License-Identifier: Apache-2.0
//
// Startup.
#include "Startup.h"

#include <binder/ProcessState.h>
#include <fcntl.h>
#include <unistd.h>

#include <optional>

#include "CallWithDeadline.h"

namespace tools {

using android::IBinder;
using android::IServiceManager;
using android::ProcessState;
using android::sp;

namespace {

constexpr std::chrono::seconds kServiceManagerPatience{5};

}  // namespace

sp<IServiceManager> connectToServiceManager(const std::string& tool, std::ostream& err) {
    const sp<ProcessState> process = ProcessState::self();
    const std::string driver = process->getDriverName().string();
    const std::optional<sp<IBinder>> manager = callWithDeadline<sp<IBinder>>(
            [process] { return process->getContextObject(nullptr); }, kServiceManagerPatience);
    if (!manager) {
        err << tool << ": the service manager on " << driver << " does not answer\n";
        return nullptr;
    }
    if (*manager == nullptr) {
        err << tool << ": no service manager on " << driver << ": start servicemanager\n";
        return nullptr;
    }
    return android::defaultServiceManager();
}

bool fillStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
        if (fcntl(fd, F_GETFD) != -1) continue;
        // The lowest free number is this one: those below are open. Of the wrong direction, so
        // that using it fails as using a closed one does.
        const int way = fd == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        if (open("/dev/null", way) != fd) return false;
    }
    return true;
}

}  // namespace tools
