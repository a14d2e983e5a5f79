// SPDX-License-Identifier: Apache-2.0
//
// The name under which this process is known: the first string of its command line, and the short
// name of its main thread.
//
// The system reads the command line out of the process's own memory, where the environment follows
// the arguments: a longer name than the first goes over it, after the environment has moved away.
//
// Limits: a name has room in place of all arguments and the first environment. One thread, the
// main one; make it before there are others.
#pragma once

#include <string>
#include <vector>

namespace sim {

class OwnName {
public:
    /** Takes over the memory of both: they hold other text after set(). */
    explicit OwnName(char** argv);
    OwnName(const OwnName&) = delete;
    OwnName& operator=(const OwnName&) = delete;

    /** False when there is no room for it; then nothing has changed. */
    [[nodiscard]] bool set(const std::string& name);

    /** The short name alone: as on the device, the end of a long name tells more. */
    static void setShort(const std::string& name);

private:
    char* const mStart;
    size_t mSize = 0;
    // Where the environment is now.
    std::vector<std::string> mStrings;
    std::vector<char*> mEnvironment;
};

}  // namespace sim
