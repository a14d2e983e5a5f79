// SPDX-License-Identifier: Apache-2.0
#include "LookupStack.h"

#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "ChildProcess.h"

using android::BBinder;
using android::defaultServiceManager;
using android::OK;
using android::sp;
using android::String16;

namespace {

String16 nameOf(int service) {
    char name[32];
    snprintf(name, sizeof(name), "service.%05d", service);
    return String16(name);
}

[[noreturn]] void fail(const char* what) {
    fprintf(stderr, "growth_bench: %s\n", what);
    _exit(1);
}

void ownServices(int readyFd, int services) {
    const auto manager = defaultServiceManager();
    for (int i = 0; i < services; i++) {
        if (manager->addService(nameOf(i), sp<BBinder>(new BBinder())) != OK) {
            fail("a service was not registered");
        }
    }
    if (write(readyFd, "", 1) != 1) fail("nobody waits for the services");
    while (true)
        pause();
}

/** Answers each count with the time of one lookup. */
void lookUpOnRequest(int socket, int services) {
    // No neighbour of the last name: what one lookup leaves in the caches is of no use to the next.
    constexpr int kStride = 7919;
    const auto manager = defaultServiceManager();
    int next = 0;
    for (int count; recv(socket, &count, sizeof(count), /*flags=*/0) == sizeof(count);) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < count; i++) {
            if (manager->checkService(nameOf(next)) == nullptr) fail("a service was not found");
            next = (next + kStride) % services;
        }
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        const double each = took.count() / count;
        if (send(socket, &each, sizeof(each), MSG_NOSIGNAL) != sizeof(each)) fail("no benchmark");
    }
}

}  // namespace

LookupStack::LookupStack(const std::string& folder, int services) {
    const std::string driver = folder + "/hub." + std::to_string(services);
    setenv("BINDER_DRIVER", driver.c_str(), /*overwrite=*/1);
    mHub = startServer({PROGRAMS "/binderhub", "--socket", driver});
    mServiceManager = startServer({PROGRAMS "/servicemanager"});
    mOwner = startReady([services](int readyFd) { ownServices(readyFd, services); });
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        perror("socketpair");
        exit(1);
    }
    mClient = startChild([&] {
        close(ends[0]);
        lookUpOnRequest(ends[1], services);
    });
    mSocket = ends[0];
    close(ends[1]);
}

LookupStack::~LookupStack() {
    close(mSocket);
    // The owner last but for the hub: nobody is left to report that its services died.
    for (pid_t pid : {mClient, mServiceManager, mOwner, mHub})
        stopChild(pid);
}

double LookupStack::lookUp(int count) const {
    double each;
    if (send(mSocket, &count, sizeof(count), MSG_NOSIGNAL) == sizeof(count) &&
        recv(mSocket, &each, sizeof(each), /*flags=*/0) == sizeof(each)) {
        return each;
    }
    fprintf(stderr, "growth_bench: the client is gone\n");
    exit(1);
}
