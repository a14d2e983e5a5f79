// SPDX-License-Identifier: Apache-2.0
//
// The session's own folder: the hub's socket, the property store, the logs.
//
// Made under $TMPDIR or /tmp (root: if $TMPDIR is open to others, else in /tmp), removed with
// everything in it at the end. As an ordinary user only its owner can enter it (0700); as root
// others can pass through (0711), since apps connect to the hub under uids of their own.
#pragma once

#include <memory>
#include <string>

namespace sim {

class SessionFolder {
public:
    /** Null when it cannot be made, with the reason in error. */
    [[nodiscard]] static std::unique_ptr<SessionFolder> make(std::string* error);

    ~SessionFolder();
    SessionFolder(const SessionFolder&) = delete;
    SessionFolder& operator=(const SessionFolder&) = delete;

    [[nodiscard]] const std::string& path() const { return mPath; }
    [[nodiscard]] std::string file(const std::string& name) const { return mPath + "/" + name; }

private:
    explicit SessionFolder(std::string path) : mPath(std::move(path)) {}

    const std::string mPath;
};

}  // namespace sim
