// SPDX-License-Identifier: Apache-2.0
//
// The terminal that a person sits at: keys that can vanish before they are read, and a screen that
// takes nothing while its owner holds it (Ctrl-S) or does not look.
//
// Neither may block the session: both go through descriptors of its own that do not block, since
// the modes of the standard streams are also those of whoever else has them. Where the terminal
// cannot be opened a second time, it is used as it is.
//
// One thread.
#pragma once

#include <android-base/unique_fd.h>

#include <cstdio>
#include <memory>
#include <optional>

#include "session/StopSignals.h"

namespace sim::scenario {

class Terminal {
public:
    /** Of the standard input and output. The signals outlive this object. */
    explicit Terminal(StopSignals& stops);
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /** For poll() and modes. */
    [[nodiscard]] int keysFd() const { return mKeys.get(); }
    /** A byte, 0 at the end; absent: none is there after all. */
    [[nodiscard]] std::optional<size_t> readByte(char* out);

    /**
     * What is written waits for room on the screen, but only until a signal other than SIGINT
     * comes: whatever finds no room then is dropped, as all is when the terminal has gone. The
     * signal is left for the next who asks for it.
     */
    [[nodiscard]] FILE* screen() const { return mScreen.get(); }

private:
    [[nodiscard]] static ssize_t writeTo(void* self, const char* text, size_t size);

    StopSignals& mStops;
    const android::base::unique_fd mKeys;
    const android::base::unique_fd mScreenFd;
    const std::unique_ptr<FILE, int (*)(FILE*)> mScreen;
};

}  // namespace sim::scenario
