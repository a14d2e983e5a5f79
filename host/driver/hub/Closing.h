// SPDX-License-Identifier: Apache-2.0
//
// Closing: letting go of descriptors that clients have passed.
//
// Problem: close() may wait for its file, for hours: a socket that lingers, a file system that a
// user's program serves. The hub waits for nobody, so a second thread closes whatever is not known
// to close at once. It takes numbers from a pipe and shares nothing else with the hub.
#pragma once

#include <android-base/unique_fd.h>

namespace binderhost::hub {

struct PassedCloser {
    static void Close(int fd);
};

using PassedDescriptor = android::base::unique_fd_impl<PassedCloser>;

}  // namespace binderhost::hub
