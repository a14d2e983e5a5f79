// SPDX-License-Identifier: Apache-2.0
//
// Which driver stands at a path.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "driver/Driver.h"
#include "embedded/EmbeddedDriver.h"
#include "kernel/KernelDriver.h"

namespace binderhost {

bool namesDevice(const std::string& path) {
    struct stat found {};
    if (stat(path.c_str(), &found) != 0) return path.starts_with("/dev/");
    return S_ISCHR(found.st_mode);
}

std::string driverPath() {
    if (const char* given = std::getenv("BINDER_DRIVER"); given && *given) return given;
    if (const char* folder = std::getenv("XDG_RUNTIME_DIR"); folder && *folder) {
        return std::string(folder) + "/binderhub/hub";
    }
    return "/tmp/binderhub-" + std::to_string(geteuid()) + "/hub";
}

std::unique_ptr<Driver> openDriver(const std::string& path, std::string* error) {
    return namesDevice(path) ? KernelDriver::open(path, error) : EmbeddedDriver::open(path, error);
}

}  // namespace binderhost
