// SPDX-License-Identifier: Apache-2.0
//
// Store place: which file holds the properties.
#pragma once

#include <string>

namespace hostproperties {

struct StorePlace {
    /** The store's file. */
    std::string path;

    /**
     * A folder of this user alone that the file stands in: writers make it, and readers and
     * writers refuse one that another user owns or may enter. Empty: no such demand.
     */
    std::string privateFolder;
};

/**
 * The environment variable HOST_PROPERTIES names the file. Unset or empty, it is "properties" in
 * the folder of the host's runtime files: $XDG_RUNTIME_DIR/binderhub, else
 * /tmp/binderhub-UID.
 */
[[nodiscard]] StorePlace defaultStorePlace();

}  // namespace hostproperties
