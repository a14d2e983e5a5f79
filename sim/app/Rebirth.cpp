// SPDX-License-Identifier: Apache-2.0
// Begins anew in the place of this process.
#include "app/Rebirth.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

#include "process/ChildProcess.h"

namespace sim {

void beginAnew(const std::string& name, std::optional<uid_t> uid, char** environment) {
    // What cannot become root again can take no other identity.
    if (uid && seteuid(0) != 0) return;
    const int program = open("/proc/self/exe", O_PATH | O_CLOEXEC);
    if (program < 0) return;
    if (uid && !takeIdentity(*uid, /*keepsRoot=*/true)) return;
    // A change of identity clears the death signal.
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) return;
    std::array<char*, 2> argv{const_cast<char*>(name.c_str()), nullptr};
    syscall(SYS_execveat, program, "", argv.data(), environment, AT_EMPTY_PATH);
}

}  // namespace sim
