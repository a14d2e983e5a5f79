// SPDX-License-Identifier: Apache-2.0
//
// Output: bytes for a descriptor that may go away at any time.
//
// After the first failure nothing more is written, and the failure is remembered. SIGPIPE must be
// ignored in the process.
#pragma once

#include <string_view>

namespace tools {

class Output {
public:
    /** Does not own the descriptor, which may be one that never blocks. */
    explicit Output(int fd) : mFd(fd) {}

    /** Writes all of it, waiting for the reader as long as it takes. False after a failure. */
    [[nodiscard]] bool write(std::string_view bytes);

    /** The errno of the failure; 0 when there was none. */
    [[nodiscard]] int error() const { return mError; }

private:
    const int mFd;
    int mError = 0;
};

}  // namespace tools
