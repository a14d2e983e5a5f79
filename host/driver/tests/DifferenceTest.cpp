// SPDX-License-Identifier: Apache-2.0
//
// Where the drivers are known to differ, and why. A row that stops being true fails.
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "DriverFixture.h"

namespace binderhost::tests {
namespace {

/** A context manager and a client that holds a node of its, on one driver. */
struct Scene {
    Scene(const std::string& at, std::function<uint64_t()> countBuffers)
          : path(at), server(at), client(at), buffers(std::move(countBuffers)) {
        server.publish();
        handle = client.takeNode(&server);
    }
    std::string post(Payload payload) {
        client.write(Commands().oneway(handle, 1, std::move(payload)));
        return StepClient::name(client.nextEvent().command);
    }

    const std::string path;
    PeerClient server;
    PeerClient client;
    uint32_t handle = 0;
    std::function<uint64_t()> buffers;
};

std::string postDescriptors(Scene* scene) {
    Payload payload;
    for (int i = 0; i < 254; i++)
        payload.descriptor(STDERR_FILENO);
    return scene->post(payload);
}

/** How many descriptors wait for one receiver that reads none. */
std::string postUnreadDescriptors(Scene* scene) {
    Payload payload;
    for (int i = 0; i < 200; i++)
        payload.descriptor(STDERR_FILENO);
    int waiting = 0;
    for (int i = 0; i < 3; i++) {
        if (scene->post(payload) == "BR_TRANSACTION_COMPLETE") waiting += 200;
    }
    return std::to_string(waiting);
}

std::string postObjects(Scene* scene) {
    Payload payload;
    for (uint64_t i = 0; i < 2049; i++)
        payload.handle(0);
    scene->client.write(Commands().count(BC_ACQUIRE, 0));
    return scene->post(payload);
}

std::string postPointer(Scene* scene) {
    binder_buffer_object object{};
    object.hdr.type = BINDER_TYPE_PTR;
    Payload payload;
    payload.offsets.push_back(0);
    payload.bytes.assign(reinterpret_cast<const char*>(&object), sizeof(object));
    return scene->post(payload);
}

int writeOnly(Driver& driver, const void* commands, size_t size) {
    binder_write_read bwr{};
    bwr.write_buffer = reinterpret_cast<uintptr_t>(commands);
    bwr.write_size = size;
    return driver.writeRead(&bwr);
}

std::string writeCutCommand(Scene* scene) {
    return std::to_string(scene->client.run([](Driver& driver, int64_t) {
        const uint32_t commands[] = {BC_RELEASE, 4711};
        return writeOnly(driver, commands, sizeof(commands) - 2);
    }));
}

/** Whether a command is taken that stands behind a call that fails. */
std::string writeBehindFailure(Scene* scene) {
    return std::to_string(scene->client.run([](Driver& driver, int64_t) {
        struct __attribute__((packed)) {
            uint32_t command = BC_TRANSACTION;
            binder_transaction_data argument{};
            uint32_t looper = BC_ENTER_LOOPER;
        } commands;
        commands.argument.target.handle = 4711;
        binder_write_read bwr{};
        bwr.write_buffer = reinterpret_cast<uintptr_t>(&commands);
        bwr.write_size = sizeof(commands);
        const int status = driver.writeRead(&bwr);
        return status ? status : static_cast<int>(bwr.write_size - bwr.write_consumed);
    }));
}

std::string writeScatteredCall(Scene* scene) {
    return std::to_string(scene->client.run([](Driver& driver, int64_t) {
        struct __attribute__((packed)) {
            uint32_t command = BC_TRANSACTION_SG;
            binder_transaction_data_sg argument{};
        } commands;
        commands.argument.transaction_data.flags = TF_ONE_WAY;
        return writeOnly(driver, &commands, sizeof(commands));
    }));
}

/** Whether the receiver itself may write there. */
std::string writeToBuffer(Scene* scene) {
    scene->client.write(Commands().call(0, 1, "text"));
    const Return call = scene->server.expect(BR_TRANSACTION);
    const auto address = static_cast<int64_t>(call.data().data.ptr.buffer);
    const int status = scene->server.run(
            [](Driver&, int64_t at) {
                const int zero = open("/dev/zero", O_RDONLY | O_CLOEXEC);
                const ssize_t got = read(zero, reinterpret_cast<void*>(at), 1);
                const int error = got == 1 ? 0 : -errno;
                close(zero);
                return error;
            },
            address);
    return std::to_string(status);
}

/** Who gets the call that was made while the only looper was between its reply and its read. */
std::string leaveAfterReply(Scene* scene) {
    PeerClient pool(&scene->server);
    pool.write(Commands().looper());
    scene->client.write(Commands().call(0, 1));
    const Return call = pool.expect(BR_TRANSACTION);
    if (pool.exchange(Commands().freeBuffer(call).reply(), /*read=*/true) != 0) return "no reply";
    (void)scene->client.expectReply();
    scene->client.write(Commands().call(0, 2));
    PeerClient(&scene->client).post(0, 3);
    pool.exitThread();
    return "call " + std::to_string(scene->server.expect(BR_TRANSACTION).data().code);
}

/** What a call to a process meets after the attempt to freeze it. */
std::string callFrozen(Scene* scene) {
    const android::base::unique_fd device(open(scene->path.c_str(), O_RDWR | O_CLOEXEC));
    binder_freeze_info freeze{};
    freeze.pid = static_cast<uint32_t>(scene->server.pid());
    freeze.enable = 1;
    freeze.timeout_ms = 1000;
    const bool frozen = ioctl(device.get(), BINDER_FREEZE, &freeze) == 0;
    scene->client.write(Commands().call(0, 1));
    if (frozen) return StepClient::name(scene->client.nextEvent().command);
    return StepClient::name(scene->server.nextEvent().command);
}

/** How nice a thread is that was as nice as can be, while it serves a caller that is not. */
std::string serveTheLessNice(Scene* scene) {
    const int status = scene->server.run([](Driver&, int64_t) {
        return setpriority(PRIO_PROCESS, /*who=*/0, /*prio=*/19) == 0 ? 0 : -errno;
    });
    if (status) return "no priority: " + std::to_string(status);
    scene->client.write(Commands().call(0, 1));
    (void)scene->server.expect(BR_TRANSACTION);
    return std::to_string(scene->server.run(
            [](Driver&, int64_t) { return getpriority(PRIO_PROCESS, /*who=*/0); }));
}

/** Whether a call arrives that is the 257th of calls within calls. */
std::string nest(Scene* scene) {
    PeerClient* caller = &scene->client;
    PeerClient* callee = &scene->server;
    uint32_t back = 0;
    for (int depth = 1; depth <= 256; depth++) {
        caller->write(Commands().call(caller == &scene->client ? 0 : back, 1,
                                      depth == 1 ? Payload().node(kPtr) : Payload()));
        if (depth > 1) (void)callee->expect(BR_TRANSACTION_COMPLETE);
        const Return call = callee->expect(BR_TRANSACTION);
        if (depth == 1) back = call.object(0).handle;
        if (depth > 1) callee->write(Commands().freeBuffer(call));
        std::swap(caller, callee);
    }
    caller->write(Commands().call(0, 1));
    return scene->buffers() == 1 ? "refused" : "arrives";
}

struct Difference {
    const char* what;
    std::string (*observe)(Scene* scene);
    const char* embedded;
    const char* kernel;
    const char* reason;
};

const Difference kDifferences[] = {
        {"a message with 254 descriptors", &postDescriptors, "BR_FAILED_REPLY",
         "BR_TRANSACTION_COMPLETE", "one message of a socket carries 253"},
        {"a message with 2049 objects", &postObjects, "BR_FAILED_REPLY", "BR_TRANSACTION_COMPLETE",
         "the hub bounds the work and the record for one message; the kernel does it at the "
         "sender's expense"},
        {"a pointer object without bytes", &postPointer, "BR_FAILED_REPLY",
         "BR_TRANSACTION_COMPLETE", "scattered data are for other runtimes than this one"},
        {"a call with scattered data", &writeScatteredCall, "-22", "0",
         "scattered data are for other runtimes than this one"},
        {"bytes that are left of the commands behind one that fails", &writeBehindFailure, "0", "4",
         "a frame goes to the hub as a whole; to wait for its verdict costs a round trip"},
        {"a command that ends behind the buffer", &writeCutCommand, "-22", "0",
         "the kernel looks at the start of a command only and reads on"},
        {"a 257th call within calls", &nest, "refused", "arrives",
         "the hub bounds a stack; the kernel does not, and threads run out of their own first"},
        {"the receiver writes to a buffer", &writeToBuffer, "0", "-14",
         "it is the embedded driver's own memory; the kernel's is mapped read-only"},
        {"a looper leaves between its reply and its read", &leaveAfterReply, "call 3", "call 2",
         "the hub takes it for idle from its reply on, to save a round trip, and fails the call "
         "that it gave to it"},
        {"descriptors in unread messages of 200", &postUnreadDescriptors, "400", "600",
         "the hub holds 512 for one receiver; the kernel's bound is the room for the messages"},
        {"a call to a process that was told to freeze", &callFrozen, "BR_TRANSACTION",
         "BR_FROZEN_REPLY", "no session freezes processes"},
        {"how nice a thread of niceness 19 is in a call", &serveTheLessNice, "19", "0",
         "an ordinary user's hub may not make others' threads less nice"},
};

class DifferenceTest : public DriverFixture {};

TEST_P(DifferenceTest, theDriversDifferWhereTheyAreKnownToAndNowhereElse) {
    for (const Difference& row : kDifferences) {
        ASSERT_STRNE(row.embedded, row.kernel);
        {
            Scene scene(path(), [this] { return stats()["buffers"]; });
            EXPECT_EQ(row.observe(&scene), onKernel() ? row.kernel : row.embedded)
                    << row.what << ": " << row.reason;
        }
        awaitStat("processes", 0);
    }
}

ON_EACH_DRIVER(DifferenceTest);

}  // namespace
}  // namespace binderhost::tests
