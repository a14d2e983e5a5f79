// SPDX-License-Identifier: Apache-2.0
//
// Kept process: what each system call proves is in the header's table.
#include "KeptProcess.h"

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "ProcFs.h"

namespace NQS::OS {

using android::base::unique_fd;

std::shared_ptr<const KeptProcess> KeptProcess::open(const char* root, int pid, uid_t goneUid) {
    char path[PATH_MAX];
    snprintf(path, sizeof(path), "%s/%d", root, pid);
    unique_fd folder(TEMP_FAILURE_RETRY(::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC)));
    if (!folder.ok()) return nullptr;
    unique_fd commandLine(
            TEMP_FAILURE_RETRY(openat(folder.get(), "cmdline", O_RDONLY | O_CLOEXEC)));
    if (!commandLine.ok()) return nullptr;
    return std::make_shared<const KeptProcess>(std::move(folder), std::move(commandLine), goneUid);
}

KeptProcess::KeptProcess(unique_fd folder, unique_fd commandLine, uid_t goneUid)
      : mFolder(std::move(folder)), mCommandLine(std::move(commandLine)), mGoneUid(goneUid) {}

std::optional<KernelProcess::Owner> KeptProcess::owner() const {
    struct stat folder;
    if (fstat(mFolder.get(), &folder) != 0) return std::nullopt;
    KernelProcess::Owner owner{static_cast<int>(folder.st_uid), folder.st_ino};
    if (folder.st_uid != 0 && folder.st_uid != mGoneUid) return owner;
    // Of all entries this one has the same owner as the folder, dumpable process or not.
    struct stat entry;
    if (TEMP_FAILURE_RETRY(fstatat(mFolder.get(), "task", &entry, /*flags=*/0)) != 0) {
        return std::nullopt;
    }
    owner.uid = static_cast<int>(entry.st_uid);
    return owner;
}

std::optional<std::string> KeptProcess::commandName() const {
    return ProcFs::readUntil(mCommandLine.get(), '\0');
}

}  // namespace NQS::OS
