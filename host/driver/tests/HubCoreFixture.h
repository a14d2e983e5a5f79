// SPDX-License-Identifier: Apache-2.0
//
// HubCoreTest: a hub without sockets, and processes that are played to it step by step.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "RawClient.h"
#include "hub/Hub.h"

namespace binderhost::hub {

using tests::kPtr;
using tests::Payload;

/** Packs commands as a driver would; everything inline. */
class Packed {
public:
    Packed& call(uint32_t command, uint32_t handle, uint32_t code, const Payload& payload = {},
                 uint32_t flags = 0) {
        frame::Transaction head;
        head.data.target.handle = handle;
        head.data.code = code;
        head.data.flags = flags;
        head.data.data_size = payload.bytes.size();
        head.data.offsets_size = payload.offsets.size() * sizeof(binder_size_t);
        appendBytes(&bytes, command);
        appendBytes(&bytes, head);
        bytes.insert(bytes.end(), payload.bytes.begin(), payload.bytes.end());
        for (const binder_size_t offset : payload.offsets)
            appendBytes(&bytes, offset);
        return *this;
    }
    Packed& oneway(uint32_t handle, uint32_t code, const Payload& payload = {}) {
        return call(BC_TRANSACTION, handle, code, payload, TF_ONE_WAY);
    }
    Packed& reply(const Payload& payload = {}) { return call(BC_REPLY, 0, 0, payload); }
    template <typename... Values>
    Packed& put(uint32_t command, const Values&... values) {
        appendBytes(&bytes, command);
        (appendBytes(&bytes, values), ...);
        return *this;
    }

    std::vector<uint8_t> bytes;
};

/** A process with one thread; remembers what it was sent. */
class Peer : public Link {
public:
    struct Got {
        uint32_t command;
        std::vector<uint8_t> argument;
        uint64_t buffer = 0;
    };

    Peer(Hub* hub, pid_t pid) : hub(hub), process(hub->openProcess(pid)) {
        thread = hub->openThread(process, this);
    }

    bool send(const Record& record) override {
        if (refusesDescriptors && !record.descriptors.empty()) return false;
        take(record);
        return true;
    }
    void take(const Record& record) {
        records++;
        std::vector<uint8_t> whole = record.head;
        whole.insert(whole.end(), record.payload.begin(), record.payload.end());
        EXPECT_LE(whole.size(), frame::kMaxBytes);
        ByteReader reader(whole);
        frame::Header header;
        ASSERT_TRUE(reader.take(&header));
        for (uint32_t command = 0; reader.take(&command);) {
            const bool call = command == BR_TRANSACTION || command == BR_REPLY;
            std::span<const uint8_t> argument;
            ASSERT_TRUE(reader.takeBytes(call ? sizeof(frame::Transaction) : _IOC_SIZE(command),
                                         &argument));
            Got each{command, {argument.begin(), argument.end()}};
            if (call) {
                frame::Transaction head;
                std::memcpy(&head, argument.data(), sizeof(head));
                each.buffer = head.buffer;
                // A transaction is the last of a record.
                std::span<const uint8_t> rest;
                ASSERT_TRUE(reader.takeBytes(reader.left(), &rest));
                payload.assign(rest.begin(), rest.end());
            }
            if (command != BR_NOOP) got.push_back(std::move(each));
        }
    }

    [[nodiscard]] bool feed(std::span<const uint8_t> bytes, uint32_t flags) {
        FrameDescriptors none;
        return hub->handle(thread, flags, /*uid=*/1000, bytes, &none);
    }
    /** One transaction with one descriptor, and a read. */
    [[nodiscard]] bool feedDescriptor(std::vector<uint8_t> bytes) {
        const uint32_t one = 1;
        std::memcpy(bytes.data() + sizeof(uint32_t) + offsetof(frame::Transaction, descriptors),
                    &one, sizeof(one));
        FrameDescriptors descriptors;
        descriptors.all.emplace_back(dup(STDERR_FILENO));
        return hub->handle(thread, frame::kRead, /*uid=*/1000, bytes, &descriptors);
    }
    void write(const Packed& packed) { EXPECT_TRUE(feed(packed.bytes, 0)); }
    void waitForWork() {
        while (!thread->waiting)
            read();
    }
    void read(const Packed& packed = {}) { EXPECT_TRUE(feed(packed.bytes, frame::kRead)); }
    [[nodiscard]] std::vector<uint32_t> commands() {
        std::vector<uint32_t> out;
        for (const Got& each : got)
            out.push_back(each.command);
        got.clear();
        return out;
    }

    Hub* hub;
    Process* process;
    Thread* thread;
    std::vector<Got> got;
    std::vector<uint8_t> payload;
    int records = 0;
    bool refusesDescriptors = false;
};

using Seen = std::vector<uint32_t>;

class HubCoreTest : public ::testing::Test {
protected:
    explicit HubCoreTest(const Limits& limits = {}) : mHub(limits) {
        EXPECT_EQ(mHub.becomeContextManager(mServer.process, 1000), 0);
    }
    /** The server holds a handle on a node of the peer's; nothing is left to read. */
    uint32_t give(Peer* peer, uint64_t ptr = kPtr) {
        peer->write(Packed().call(BC_TRANSACTION, 0, 1, Payload().node(ptr)));
        mServer.read(Packed().put(BC_ENTER_LOOPER));
        const uint32_t handle = mServer.process->nextHandle - 1;
        mServer.read(Packed().put(BC_ACQUIRE, handle)
                             .put(BC_FREE_BUFFER, mServer.got.back().buffer)
                             .reply());
        mServer.got.clear();
        peer->read();
        peer->write(Packed().put(BC_INCREFS_DONE, ptr, uint64_t{0})
                            .put(BC_ACQUIRE_DONE, ptr, uint64_t{0})
                            .put(BC_FREE_BUFFER, peer->got.back().buffer));
        peer->got.clear();
        return handle;
    }
    /** The server takes, frees and answers all calls that wait for it. */
    void serveAll() {
        if (!mServer.thread->looper) mServer.write(Packed().put(BC_ENTER_LOOPER));
        for (;;) {
            if (!mServer.thread->waiting) mServer.read();
            if (mServer.thread->waiting && mServer.got.empty()) return;
            for (const auto& each : std::exchange(mServer.got, {})) {
                if (each.buffer) mServer.write(Packed().put(BC_FREE_BUFFER, each.buffer));
            }
            while (!mServer.thread->stack.empty())
                mServer.write(Packed().reply());
        }
    }
    [[nodiscard]] uint64_t stat(const std::string& name) const {
        const std::string text = "\n" + mHub.stats();
        return std::stoull(text.substr(text.find("\n" + name + "=") + name.size() + 2));
    }

    Hub mHub;
    Peer mServer{&mHub, 1};
    Peer mClient{&mHub, 2};
};

}  // namespace binderhost::hub
