// SPDX-License-Identifier: Apache-2.0
// The lines that people have typed at prompts.
#include "scenario/HistoryFile.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

namespace sim::scenario {
namespace {

using OwnedHistory = std::unique_ptr<History, void (*)(History*)>;
using android::base::unique_fd;

/** The line as the library writes it; empty when it cannot. */
std::string encoded(const std::string& line) {
    const OwnedHistory alone(history_init(), history_end);
    const std::unique_ptr<FILE, int (*)(FILE*)> file(
            fdopen(memfd_create("line", MFD_CLOEXEC), "w+"), std::fclose);
    if (alone == nullptr || file == nullptr) return "";
    HistEvent event;
    history(alone.get(), &event, H_SETSIZE, 1);
    history(alone.get(), &event, H_ENTER, line.c_str());
    std::string lines;
    const bool isSaved = history(alone.get(), &event, H_SAVE_FP, file.get()) >= 0 &&
                         std::fflush(file.get()) == 0 &&
                         lseek(fileno(file.get()), 0, SEEK_SET) == 0 &&
                         android::base::ReadFdToString(fileno(file.get()), &lines);
    // A headline of the file comes first.
    const size_t end = lines.find('\n');
    return !isSaved || end == std::string::npos ? "" : lines.substr(end + 1);
}

/** Under its name, or that which a link points to, a file is there whole or not at all. */
void replace(const std::string& name, History* history) {
    std::error_code ignored;
    const std::string path = std::filesystem::weakly_canonical(name, ignored);
    if (path.empty()) return;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    std::string anew = path + ".XXXXXX";
    const unique_fd fd(mkostemp(anew.data(), O_CLOEXEC));
    HistEvent event;
    const bool isSaved = fd.ok() && ::history(history, &event, H_SAVE, anew.c_str()) >= 0;
    if (fd.ok() && (!isSaved || rename(anew.c_str(), path.c_str()) != 0)) unlink(anew.c_str());
}

}  // namespace

void HistoryFile::load(History* history) const {
    if (mPath.empty()) return;
    HistEvent event;
    const int lines = ::history(history, &event, H_LOAD, mPath.c_str());
    // A line that another prompt keeps at this very moment may be lost by that.
    if (lines > 2 * kKeptLines) replace(mPath, history);
}

void HistoryFile::append(const std::string& line) const {
    if (mPath.empty()) return;
    unique_fd file(open(mPath.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    if (!file.ok() && errno == ENOENT) {
        const OwnedHistory none(history_init(), history_end);
        replace(mPath, none.get());
        file.reset(open(mPath.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    }
    const std::string text = encoded(line);
    // In one piece, so that lines of several prompts do not mix.
    [[maybe_unused]] const ssize_t written = write(file.get(), text.data(), text.size());
}

}  // namespace sim::scenario
