// SPDX-License-Identifier: Apache-2.0
//
// Listening: the hub's socket in the file system.
//
// Never takes the place of a hub that lives, of another person's socket or of something that is no
// socket; takes over what a hub that was killed has left. A lock on the folder keeps two hubs that
// start at once from both seeing a dead socket.
#pragma once

#include <android-base/unique_fd.h>

#include <string>

namespace binderhost::hub {

enum class OpenTo : bool {
    All,   // who may do what is decided by uid, above the driver
    Owner  // and root
};

/** A listening socket at the path. Not ok() when it cannot be had, with a message. */
[[nodiscard]] android::base::unique_fd listenAt(const std::string& path, OpenTo whom,
                                                std::string* error);

/** Makes the folder of the default socket, which only its owner can enter. */
[[nodiscard]] bool makePrivateFolder(const std::string& folder, std::string* error);

}  // namespace binderhost::hub
