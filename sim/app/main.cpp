// SPDX-License-Identifier: Apache-2.0
//
// sim_app: one simulated app, a process under the name (argv[0]) and uid that its starter chose.
//
// Driven by JSON lines on descriptor 3; says {"event": "ready"} first. Ends when the other side of
// that descriptor is closed.
#include <binder/ProcessState.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "app/AppControl.h"
#include "process/ChildProcess.h"
#include "process/LineChannel.h"

namespace {

constexpr size_t kShortNameLength = 15;

/** The short name of a process: as on the device, the end of a long name tells more. */
void takeShortName(const std::string& name) {
    const size_t start = name.size() > kShortNameLength ? name.size() - kShortNameLength : 0;
    prctl(PR_SET_NAME, name.c_str() + start);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 1) {
        std::fprintf(stderr, "usage: sim_app   (control lines on descriptor %d)\n",
                     sim::ChildProcess::kPassedFd);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    takeShortName(argv[0]);
    sim::LineChannel channel{android::base::unique_fd(sim::ChildProcess::kPassedFd)};
    android::ProcessState::self()->startThreadPool();
    Json::Value ready(Json::objectValue);
    ready["event"] = "ready";
    if (!channel.send(ready)) return 1;

    sim::AppControl control;
    Json::Value request;
    while (channel.receive(&request) == sim::LineChannel::Read::Message) {
        if (!channel.send(control.answer(request))) break;
    }
    // The session is over; binder threads are not waited for.
    _exit(0);
}
