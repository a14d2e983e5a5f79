// SPDX-License-Identifier: Apache-2.0
//
// The session's own folder: the hub's socket, the property store, the logs.
//
// Made under $TMPDIR or else /tmp, removed with everything in it at the end. Only its owner can
// enter it, be that root: whoever reached the hub would be taken for the session's person.
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
