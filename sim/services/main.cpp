// SPDX-License-Identifier: Apache-2.0
//
// sim_service NAME: one simulated platform service, in a process of its own.
//
// Driven by JSON lines on descriptor 3. The first sets the world, so that nobody can ask before
// there is one; then the service is published and {"event": "ready"} said. Ends when the other
// side of that descriptor is closed.
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

/** Answers lines until the other side is closed, or until a number of them were answered. */
bool serve(sim::ServiceControl& control, sim::LineChannel& channel, int lines) {
    Json::Value request;
    for (int line = 0; lines < 0 || line < lines; ++line) {
        if (channel.receive(&request) != sim::LineChannel::Read::Message) return false;
        if (!channel.send(control.answer(request))) return false;
    }
    return true;
}

bool publish(const char* name, const sp<android::IBinder>& binder) {
    const android::status_t status =
            android::defaultServiceManager()->addService(android::String16(name), binder);
    if (status == android::OK) return true;
    std::fprintf(stderr, "sim_service: the service manager refuses '%s': %d\n", name, status);
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    const auto maker = argc == 2 ? makers().find(argv[1]) : makers().end();
    if (maker == makers().end()) return usage();
    signal(SIGPIPE, SIG_IGN);

    sim::LineChannel channel{android::base::unique_fd(sim::ChildProcess::kPassedFd)};
    sim::WorldReplica world;
    const Hosted hosted = maker->second(world);
    sim::ServiceControl control(*hosted.control, world);
    if (!serve(control, channel, /*lines=*/1)) _exit(1);
    android::ProcessState::self()->startThreadPool();
    if (!publish(argv[1], hosted.binder)) _exit(1);
    Json::Value ready(Json::objectValue);
    ready["event"] = "ready";
    if (channel.send(ready)) static_cast<void>(serve(control, channel, /*lines=*/-1));
    // The session is over; binder threads still use what stands on this stack.
    _exit(0);
}
