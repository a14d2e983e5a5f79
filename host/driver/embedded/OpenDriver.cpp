// SPDX-License-Identifier: Apache-2.0
//
// Which driver stands at a path. A kernel driver would be chosen here, for a character device.
#include <unistd.h>

#include <cstdlib>

#include "driver/Driver.h"
#include "embedded/EmbeddedDriver.h"

namespace binderhost {

std::string driverPath() {
    if (const char* given = std::getenv("BINDER_DRIVER"); given && *given) return given;
    if (const char* folder = std::getenv("XDG_RUNTIME_DIR"); folder && *folder) {
        return std::string(folder) + "/binderhub/hub";
    }
    return "/tmp/binderhub-" + std::to_string(geteuid()) + "/hub";
}

std::unique_ptr<Driver> openDriver(const std::string& path, std::string* error) {
    return EmbeddedDriver::open(path, error);
}

}  // namespace binderhost
