// SPDX-License-Identifier: Apache-2.0
//
// sim_service NAME: one simulated platform service, in a process of its own.
//
// Driven by JSON lines on descriptor 3. The first set the world, so that nobody can ask before
// there is one; a later one has the service published, at once or after a time, and when it is,
// {"event": "ready"} is said. Ends when the other side of that descriptor is closed.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <signal.h>
#include <unistd.h>
#include <utils/String16.h>

#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include "process/ChildProcess.h"
#include "process/LineChannel.h"
#include "services/ActivityManager.h"
#include "services/DisplayManager.h"
#include "services/FocusHelper.h"
#include "services/PackageManagerNative.h"
#include "services/PermissionController.h"
#include "services/ServiceControl.h"
#include "services/ServiceFront.h"
#include "services/WindowManager.h"

namespace {

using android::sp;

/** One object seen from its two sides; binder keeps it alive. */
struct Hosted {
    sp<android::IBinder> binder;
    sim::SimulatedService* control = nullptr;
};

template <typename Service, typename... Arguments>
Hosted host(Arguments&... arguments) {
    const sp<Service> service(new Service(arguments...));
    return {service, service.get()};
}

using Maker = std::function<Hosted(const sim::WorldReplica&)>;

const std::map<std::string, Maker>& makers() {
    static const std::map<std::string, Maker> kMakers{
            {"activity", [](auto& world) { return host<sim::ActivityManager>(world); }},
            {"display", [](auto&) { return host<sim::DisplayManager>(); }},
            {"package_native", [](auto& world) { return host<sim::PackageManagerNative>(world); }},
            {"permission", [](auto& world) { return host<sim::PermissionController>(world); }},
            {"VelmarWindowManager", [](auto&) { return host<sim::WindowManager>(); }},
            {"vrfocushelper", [](auto&) { return host<sim::FocusHelper>(); }},
    };
    return kMakers;
}

int usage() {
    std::fprintf(stderr, "usage: sim_service NAME   (control lines on descriptor %d)\nNAME is",
                 sim::ChildProcess::kPassedFd);
    for (const auto& [name, maker] : makers())
        std::fprintf(stderr, " %s", name.c_str());
    std::fprintf(stderr, "\n");
    return 2;
}

bool publish(const char* name, const sp<android::IBinder>& binder) {
    const android::status_t status =
            android::defaultServiceManager()->addService(android::String16(name), binder);
    if (status == android::OK) return true;
    std::fprintf(stderr, "sim_service: the service manager refuses '%s': %d\n", name, status);
    return false;
}

/** Answers lines until the other side is closed, and publishes when it is time. */
void serve(const char* name, const sp<android::IBinder>& binder, sim::ServiceControl& control,
           sim::LineChannel& channel) {
    Json::Value ready(Json::objectValue);
    ready["event"] = "ready";
    Json::Value request;
    while (true) {
        switch (channel.receive(&request, control.publishTime())) {
            case sim::LineChannel::Read::Message:
                if (!channel.send(control.answer(request))) return;
                break;
            case sim::LineChannel::Read::TimedOut:
                android::ProcessState::self()->startThreadPool();
                if (!publish(name, binder)) _exit(1);
                control.published();
                if (!channel.send(ready)) return;
                break;
            default:
                return;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const auto maker = argc == 2 ? makers().find(argv[1]) : makers().end();
    if (maker == makers().end()) return usage();
    signal(SIGPIPE, SIG_IGN);

    sim::LineChannel channel{android::base::unique_fd(sim::ChildProcess::kPassedFd)};
    sim::WorldReplica world;
    const Hosted hosted = maker->second(world);
    const sp<sim::ServiceFront> front(new sim::ServiceFront(argv[1], hosted.binder));
    sim::ServiceControl control(argv[1], *hosted.control, *front, world);
    serve(argv[1], front, control, channel);
    // The session is over; binder threads still use what stands on this stack.
    _exit(0);
}
