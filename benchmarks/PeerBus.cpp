// SPDX-License-Identifier: Apache-2.0
#include "PeerBus.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>

#include "ChildProcess.h"
#include "PeerController.h"

namespace {

constexpr const char* kName = "org.example.Peer";
constexpr const char* kPath = "/peer";

void check(int result, const char* what) {
    if (result >= 0) return;
    fprintf(stderr, "sd-bus: %s: %s\n", what, strerror(-result));
    exit(1);
}

/** Starts a child and waits for the byte by which it says that it is ready. */
pid_t startReady(const char* name, const std::function<void(int readyFd)>& body) {
    int ends[2];
    if (pipe(ends) != 0) check(-errno, "pipe");
    const pid_t pid = startChild([&] {
        close(ends[0]);
        body(ends[1]);
    });
    close(ends[1]);
    char byte;
    if (read(ends[0], &byte, 1) != 1) {
        fprintf(stderr, "%s did not become ready\n", name);
        exit(1);
    }
    close(ends[0]);
    return pid;
}

void sayReady(int readyFd) {
    if (write(readyFd, "", 1) != 1) _exit(1);
}

pid_t startDaemon(const std::string& socket, const PeerFolder& folder) {
    const std::string settings = folder.file("daemon.conf");
    std::ofstream(settings) << "<busconfig><auth>EXTERNAL</auth><listen>unix:path=" << socket
                            << "</listen><policy context=\"default\"><allow user=\"*\"/>"
                               "<allow own=\"*\"/><allow send_destination=\"*\"/>"
                               "<allow receive_sender=\"*\"/></policy></busconfig>\n";
    return startReady("dbus-daemon", [&](int readyFd) {
        // It writes its address once it listens.
        const std::string print = "--print-address=" + std::to_string(readyFd);
        execlp("dbus-daemon", "dbus-daemon", ("--config-file=" + settings).c_str(), "--nofork",
               "--nopidfile", print.c_str(), nullptr);
        perror("dbus-daemon");
        _exit(127);
    });
}

pid_t startBroker(const std::string& path) {
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s", path.c_str());
    if (bind(listening, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listening, SOMAXCONN) != 0) {
        check(-errno, path.c_str());
    }
    const pid_t pid = startReady("dbus-broker", [&](int readyFd) {
        controlBroker(listening, [readyFd] { sayReady(readyFd); });
    });
    close(listening);
    return pid;
}

sd_bus* join(const std::string& socket) {
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus), "a new bus");
    check(sd_bus_set_address(bus, ("unix:path=" + socket).c_str()), "its address");
    check(sd_bus_set_bus_client(bus, /*client=*/1), "being a client");
    check(sd_bus_start(bus), "its start");
    return bus;
}

int answerPlain(sd_bus_message* message, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(message, "");
}

int answerIdentity(sd_bus_message* message, void*, sd_bus_error*) {
    sd_bus_creds* caller = nullptr;
    check(sd_bus_query_sender_creds(message, SD_BUS_CREDS_EUID | SD_BUS_CREDS_PID, &caller),
          "the caller's identity");
    uid_t uid;
    pid_t pid;
    check(sd_bus_creds_get_euid(caller, &uid), "the caller's uid");
    check(sd_bus_creds_get_pid(caller, &pid), "the caller's pid");
    sd_bus_creds_unref(caller);
    return sd_bus_reply_method_return(message, "");
}

void serve(const std::string& socket, int readyFd) {
    static const sd_bus_vtable kMethods[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_METHOD("Plain", "", "", answerPlain, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_METHOD("Identity", "", "", answerIdentity, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_VTABLE_END,
    };
    sd_bus* const bus = join(socket);
    check(sd_bus_add_object_vtable(bus, /*slot=*/nullptr, kPath, kName, kMethods, nullptr),
          "the service's methods");
    check(sd_bus_request_name(bus, kName, /*flags=*/0), "the service's name");
    sayReady(readyFd);
    for (;;) {
        const int handled = sd_bus_process(bus, /*message=*/nullptr);
        check(handled, "processing");
        if (handled == 0) check(sd_bus_wait(bus, UINT64_MAX), "waiting");
    }
}

}  // namespace

const char* PeerBus::nameOf(Broker broker) {
    return broker == Broker::Daemon ? "dbus-daemon" : "dbus-broker";
}

bool PeerBus::isInstalled(Broker broker) {
    const char* const path = getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "/usr/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (access((folder + "/" + nameOf(broker)).c_str(), X_OK) == 0) return true;
    }
    return false;
}

PeerBus::PeerBus(Broker broker, const PeerFolder& folder) {
    const std::string socket = folder.file(nameOf(broker));
    mBroker = broker == Broker::Daemon ? startDaemon(socket, folder) : startBroker(socket);
    mService = startReady(kName, [&](int readyFd) { serve(socket, readyFd); });
    mClient = join(socket);
}

PeerBus::~PeerBus() {
    sd_bus_close(mClient);
    sd_bus_unref(mClient);
    stopChild(mService);
    stopChild(mBroker);
}

void PeerBus::call(bool identity) const {
    check(sd_bus_call_method(mClient, kName, kPath, kName, identity ? "Identity" : "Plain",
                             /*error=*/nullptr, /*reply=*/nullptr, ""),
          "a call");
}
