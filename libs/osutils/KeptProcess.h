// SPDX-License-Identifier: Apache-2.0
//
// Kept process: one process's folder and command line, opened once and asked many times.
//
// Problem: opening and closing is two thirds of what a look at a process costs. Descriptors below
// /proc name one process for ever, through exec, setuid and renaming, and no later process of the
// same pid; so they may be kept. But a folder tells its owner even when the process is gone, and
// then says root. Therefore:
//
//   the folder says another uid than that      alive: the kernel read it from the process
//   it says that uid                           asked again by way of an entry of the folder,
//                                              which is found only while the process is there
//   the command line gives bytes               alive, and that is the name
//   anything else                              nothing is known: ask by pid
//
// A kept process pins two open files and a few hundred bytes of the kernel's, not the memory of
// the process. The descriptors are close-on-exec.
//
// Threads: any, at once; nothing changes after construction.
#pragma once

#include <android-base/unique_fd.h>
#include <osutils/KernelProcess.h>
#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

namespace NQS::OS {

class KeptProcess {
public:
    /**
     * Opens the process that has this pid below `root` ("/proc" but in tests). `goneUid` is what
     * a folder says whose process is gone. Null, with errno, when it cannot be opened.
     *
     * Whether the pid is a process's and not another thread's is for the caller to find out,
     * between this and an owner() that answers.
     */
    [[nodiscard]] static std::shared_ptr<const KeptProcess> open(const char* root, int pid,
                                                                 uid_t goneUid);

    KeptProcess(android::base::unique_fd folder, android::base::unique_fd commandLine,
                uid_t goneUid);

    /** Whose it is now; empty when the process is gone or cannot be asked. */
    [[nodiscard]] std::optional<KernelProcess::Owner> owner() const;

    /**
     * The first string of the command line now: empty for zombies among others. No value when the
     * process is gone or cannot be asked.
     */
    [[nodiscard]] std::optional<std::string> commandName() const;

private:
    const android::base::unique_fd mFolder;
    const android::base::unique_fd mCommandLine;
    const uid_t mGoneUid;
};

}  // namespace NQS::OS
