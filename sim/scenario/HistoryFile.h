// SPDX-License-Identifier: Apache-2.0
//
// The lines that people have typed at prompts, kept for the next ones. Several prompts may use one
// file at a time: each appends what is typed at it. What cannot be read or written is not kept.
//
// One thread.
#pragma once

#include <histedit.h>

#include <string>
#include <utility>

namespace sim::scenario {

class HistoryFile {
public:
    static constexpr int kKeptLines = 1000;

    /** path: empty for none. */
    explicit HistoryFile(std::string path) : mPath(std::move(path)) {}

    /** Adds the latest lines; a file that has grown too long is cut down to them. */
    void load(History* history) const;
    void append(const std::string& line) const;

private:
    const std::string mPath;
};

}  // namespace sim::scenario
