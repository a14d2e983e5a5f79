// SPDX-License-Identifier: Apache-2.0
//
// HubConnection: reaching a hub and asking it something with an answer.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/socket.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "embedded/Frame.h"

namespace binderhost {

/** How long a hub may take for an answer it never has to wait for itself. */
inline constexpr int kAnswerSeconds = 10;

/** An O_PATH descriptor of the socket at the path, or not ok() with a message. */
[[nodiscard]] android::base::unique_fd findHub(const std::string& path, std::string* error);

/** The calling process as it is now; its gid plays no part. */
[[nodiscard]] ucred ownCredentials();

/** 0 or a negative errno: -ETIMEDOUT, -EPROTO (not a hub's answer), -ECONNREFUSED (hung up). */
[[nodiscard]] int receiveAnswer(int socket, frame::Answer* out,
                                std::vector<android::base::unique_fd>* descriptors = nullptr);

[[nodiscard]] int askBytes(int socket, std::span<const uint8_t> request, frame::Answer* out,
                           std::vector<android::base::unique_fd>* descriptors);

/** Sends a request (a trivially copyable frame) with credentials; takes its answer and what came.
 */
template <typename Request>
[[nodiscard]] int ask(int socket, const Request& request, frame::Answer* out,
                      std::vector<android::base::unique_fd>* descriptors = nullptr) {
    return askBytes(socket, {reinterpret_cast<const uint8_t*>(&request), sizeof(request)}, out,
                    descriptors);
}

}  // namespace binderhost
