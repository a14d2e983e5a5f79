// SPDX-License-Identifier: Apache-2.0
//
// A call over D-Bus, as a daemon on a Linux machine would have it: sd-bus through a broker of our
// own, which listens in a folder that nobody else knows.
//
//      client ── sd-bus ──▶ dbus-daemon or dbus-broker ── sd-bus ──▶ service
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "PeerFolder.h"

struct sd_bus;

class PeerBus {
public:
    enum class Broker { Daemon, Broker };

    /** The program's name. */
    static const char* nameOf(Broker broker);
    static bool isInstalled(Broker broker);

    /** Starts the broker and a service; the caller is the client. Ends the benchmark on failure. */
    PeerBus(Broker broker, const PeerFolder& folder);
    ~PeerBus();
    PeerBus(const PeerBus&) = delete;
    PeerBus& operator=(const PeerBus&) = delete;

    /**
     * One empty call and its answer; identity: the service asks the broker for the caller's uid and
     * pid on the way. Ends the benchmark on failure.
     */
    void call(bool identity) const;

private:
    pid_t mBroker;
    pid_t mService;
    sd_bus* mClient = nullptr;
};
