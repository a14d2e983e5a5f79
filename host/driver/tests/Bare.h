// SPDX-License-Identifier: Apache-2.0
//
// Bare: a connection to a hub that is under the test's full control, and keeps to no protocol.
//
//      Bare process(path);
//      process.becomeProcess();
//      const Bare thread(path, process);
//      thread.send(anyBytes);
//      EXPECT_TRUE(thread.cutOff());
#pragma once

#include <android-base/unique_fd.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <span>
#include <string>
#include <vector>

#include "Child.h"
#include "embedded/ByteReader.h"
#include "embedded/HubConnection.h"
#include "embedded/Socket.h"

namespace binderhost::tests {

class Bare {
public:
    explicit Bare(const std::string& path) {
        std::string error;
        const unique_fd place = findHub(path, &error);
        require(place.ok() && connectTo(place.get(), 5, &mSocket) == 0, "connect");
    }
    /** A process with one thread: the second connection. */
    Bare(const std::string& path, const Bare& process) : Bare(path) {
        frame::Hello hello;
        hello.header.kind = frame::Kind::HelloThread;
        hello.token = process.mToken;
        frame::Answer answer;
        require(ask(mSocket.get(), hello, &answer) == 0 && answer.status == 0, "thread");
    }
    void becomeProcess() { require(tryToBecomeProcess(), "process"); }
    /** False: the hub refuses. */
    [[nodiscard]] bool tryToBecomeProcess() {
        frame::Hello hello;
        hello.header.kind = frame::Kind::HelloProcess;
        frame::Answer answer;
        if (ask(mSocket.get(), hello, &answer) != 0) return false;
        mToken = answer.token;
        return true;
    }
    [[nodiscard]] int send(std::span<const uint8_t> bytes, std::span<const int> descriptors = {},
                           const ucred* credentials = nullptr) const {
        const iovec part{const_cast<uint8_t*>(bytes.data()), bytes.size()};
        const ucred own = ownCredentials();
        return sendRecord(mSocket.get(), {&part, 1}, descriptors, credentials ? credentials : &own,
                          /*flags=*/0);
    }
    /** Sends again and again until the hub has hung up; how often, or -1 when it never does. */
    [[nodiscard]] int sendUntilCutOff(std::span<const uint8_t> bytes, int most) const {
        for (int sent = 0; sent < most; sent++) {
            const int status = send(bytes);
            if (status == -EPIPE || status == -ECONNRESET) return sent;
            require(status == 0, "send");
        }
        return -1;
    }
    void hangUp() { mSocket.reset(); }
    [[nodiscard]] const frame::Token& token() const { return mToken; }
    /** The other side has hung up within a deadline. */
    [[nodiscard]] bool cutOff() const {
        pollfd wait{mSocket.get(), POLLIN, 0};
        uint8_t byte = 0;
        Received received;
        if (poll(&wait, 1, 20'000) != 1) return false;
        const int status = receiveRecord(mSocket.get(), {&byte, 1}, MSG_DONTWAIT, &received);
        return status == -ECONNRESET || (status == 0 && received.size == 0);
    }
    /** The command after BR_NOOP in the next record. */
    [[nodiscard]] uint32_t firstReturn() const {
        uint8_t room[256];
        Received received;
        pollfd wait{mSocket.get(), POLLIN, 0};
        require(poll(&wait, 1, 20'000) == 1, "no answer");
        require(receiveRecord(mSocket.get(), room, MSG_DONTWAIT, &received) == 0, "receive");
        ByteReader reader({room, received.size});
        frame::Header header;
        uint32_t first = 0, second = 0;
        require(reader.take(&header) && reader.take(&first) && reader.take(&second), "cut");
        return second;
    }

private:
    frame::Token mToken{};
    unique_fd mSocket;
};

/** A process with one thread. */
struct BareProcess {
    explicit BareProcess(const std::string& path)
          : process(path), thread((process.becomeProcess(), path), process) {}
    Bare process;
    Bare thread;
};

inline std::vector<uint8_t> bytesOf(const auto& value) {
    std::vector<uint8_t> out;
    appendBytes(&out, value);
    return out;
}

/** A frame of commands that a thread could send: a call with 8 bytes. */
inline std::vector<uint8_t> soundFrame(uint32_t handle = 0, uint32_t flags = 0) {
    frame::Transaction head;
    head.data.target.handle = handle;
    head.data.data_size = 8;
    std::vector<uint8_t> out = bytesOf(frame::Header{.flags = flags});
    appendBytes(&out, uint32_t{BC_TRANSACTION});
    appendBytes(&out, head);
    appendBytes(&out, uint64_t{1});
    return out;
}

/** One that the hub needs long for, and that does nothing. */
inline std::vector<uint8_t> longFrame(size_t size) {
    std::vector<uint8_t> out = bytesOf(frame::Header{});
    while (out.size() < size) {
        for (const uint32_t command : {BC_INCREFS, BC_DECREFS}) {
            appendBytes(&out, command);
            appendBytes(&out, uint32_t{0});
        }
    }
    return out;
}

}  // namespace binderhost::tests
