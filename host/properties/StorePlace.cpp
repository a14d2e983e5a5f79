// SPDX-License-Identifier: Apache-2.0
//
// Store place, from the environment.
#include <properties/StorePlace.h>
#include <stdlib.h>
#include <unistd.h>

namespace hostproperties {

StorePlace defaultStorePlace() {
    const char* named = getenv("HOST_PROPERTIES");
    if (named && *named) return {.path = named, .privateFolder = {}};

    const char* runtime = getenv("XDG_RUNTIME_DIR");
    const std::string folder = runtime && *runtime ? std::string(runtime) + "/binderhub"
                                                   : "/tmp/binderhub-" + std::to_string(geteuid());
    return {.path = folder + "/properties", .privateFolder = folder};
}

}  // namespace hostproperties
