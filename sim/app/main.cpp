// SPDX-License-Identifier: Apache-2.0
//
// sim_app: one simulated app, a process under the name (argv[0]) and uid that its starter chose.
//
// Driven by JSON lines on descriptor 3; says {"event": "ready"} first. Ends when the other side of
// that descriptor is closed.
#include <binder/ProcessState.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "app/AppControl.h"
#include "app/OwnName.h"
#include "app/Rebirth.h"
#include "process/ChildProcess.h"
#include "process/LineChannel.h"

int main(int argc, char** argv) {
    if (argc != 1) {
        std::fprintf(stderr, "usage: sim_app   (control lines on descriptor %d)\n",
                     sim::ChildProcess::kPassedFd);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    sim::OwnName::setShort(argv[0]);
    sim::OwnName name(argv);
    sim::LineChannel channel{android::base::unique_fd(sim::ChildProcess::kPassedFd)};
    // Listeners' calls are logged in the order of their delivery: one thread takes all of them.
    android::ProcessState::self()->setThreadPoolMaxThreadCount(0);
    android::ProcessState::self()->startThreadPool();
    Json::Value ready(Json::objectValue);
    ready["event"] = "ready";
    if (!channel.send(ready)) return 1;

    sim::AppControl control(name);
    Json::Value request;
    while (channel.receive(&request) == sim::LineChannel::Read::Message) {
        if (!channel.send(control.answer(request)) || control.isToEnd()) break;
    }
    if (const auto& successor = control.successor()) {
        sim::beginAnew(successor->name, successor->uid, environ);
        std::perror("cannot begin anew");
        _exit(1);
    }
    // The session is over; binder threads are not waited for.
    _exit(0);
}
