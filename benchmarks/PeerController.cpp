// SPDX-License-Identifier: Apache-2.0
#include "PeerController.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "ChildProcess.h"

namespace {

// What may be sent or received: verdict, priority, sender or receiver, path, interface, member,
// type of message, broadcast or not, numbers of descriptors from and to.
#define TRANSFER_RULES "a(btssssuutt)"
// Connecting: verdict and priority; names that may be owned; sending; receiving.
#define POLICY "bta(btbs)" TRANSFER_RULES TRANSFER_RULES
// Of single users; of ranges of users and groups; labels; whether labels hold; kind of bus.
#define POLICIES "a(u(" POLICY "))a(buu(" POLICY "))a(ss)bs"

void check(int result, const char* what) {
    if (result >= 0) return;
    fprintf(stderr, "dbus-broker's controller: %s: %s\n", what, strerror(-result));
    _exit(1);
}

/** A container of a message, closed at the end of the scope. */
class Container {
public:
    Container(sd_bus_message* message, char type, const char* contents) : mMessage(message) {
        check(sd_bus_message_open_container(message, type, contents), "open a container");
    }
    ~Container() { check(sd_bus_message_close_container(mMessage), "close a container"); }
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;

private:
    sd_bus_message* const mMessage;
};

template <typename... Values>
void append(sd_bus_message* message, const char* types, Values... values) {
    check(sd_bus_message_append(message, types, values...), types);
}

void appendPermissivePolicy(sd_bus_message* message) {
    constexpr uint64_t kPriority = 1;
    const Container policy(message, 'r', POLICY);
    append(message, "bt", /*connect=*/1, kPriority);
    append(message, "a(btbs)", /*count=*/1, /*own=*/1, kPriority, /*prefixes=*/1, "");
    for (int direction = 0; direction < 2; direction++) {
        append(message, TRANSFER_RULES, /*count=*/1, /*allow=*/1, kPriority, "", "", "", "",
               /*anyType=*/0u, /*anyBroadcast=*/0u, uint64_t{0}, UINT64_MAX);
    }
}

void appendPolicies(sd_bus_message* message) {
    const Container variant(message, 'v', "(" POLICIES ")");
    const Container policies(message, 'r', POLICIES);
    {
        const Container users(message, 'a', "(u(" POLICY "))");
        const Container everyUser(message, 'r', "u(" POLICY ")");
        append(message, "u", UINT32_MAX);
        appendPermissivePolicy(message);
    }
    {
        const Container ranges(message, 'a', "(buu(" POLICY "))");
        const Container everyGroup(message, 'r', "buu(" POLICY ")");
        append(message, "buu", /*isGroup=*/0, 0u, UINT32_MAX - 1);
        appendPermissivePolicy(message);
    }
    append(message, "a(ss)bs", /*labels=*/0, /*labelsHold=*/0, "session");
}

void addListener(sd_bus* bus, int listeningSocket) {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_call(bus, &message, /*destination=*/nullptr,
                                         "/org/bus1/DBus/Broker", "org.bus1.DBus.Broker",
                                         "AddListener"),
          "a new message");
    append(message, "oh", "/org/bus1/DBus/Listener/0", listeningSocket);
    appendPolicies(message);
    sd_bus_error error = SD_BUS_ERROR_NULL;
    const int result = sd_bus_call(bus, message, /*usec=*/0, &error, /*reply=*/nullptr);
    check(result, error.message != nullptr ? error.message : "AddListener");
    sd_bus_message_unref(message);
}

}  // namespace

void controlBroker(int listeningSocket, const std::function<void()>& ready) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0) {
        check(-errno, "socketpair");
    }
    startChild([&] {
        fcntl(ends[1], F_SETFD, 0);
        const std::string number = std::to_string(ends[1]);
        execlp("dbus-broker", "dbus-broker", "--controller", number.c_str(), "--machine-id",
               "00000000000000000000000000000001", nullptr);
        check(-errno, "exec");
    });
    close(ends[1]);
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus), "a new bus");
    check(sd_bus_set_fd(bus, ends[0], ends[0]), "its socket");
    check(sd_bus_start(bus), "its start");
    addListener(bus, listeningSocket);
    ready();
    for (;;) {
        const int handled = sd_bus_process(bus, /*message=*/nullptr);
        check(handled, "processing");
        if (handled == 0) check(sd_bus_wait(bus, UINT64_MAX), "waiting");
    }
}
