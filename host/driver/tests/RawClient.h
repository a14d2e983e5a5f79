// SPDX-License-Identifier: Apache-2.0
//
// RawClient: a process of the driver that speaks bare BC_* and BR_*.
//
// Each client opens a driver of its own, so it is a process to the driver: several in one test
// thread play several processes step by step, with no interleaving left to chance. In a forked
// child it is a real one, too.
//
//      RawClient server(path()), client(path());
//      server.publish();                                   // takes handle 0, waits as a looper
//      client.write(Commands().call(0, kCode, "hello"));
//      const Return call = server.expect(BR_TRANSACTION);
//      server.write(Commands().freeBuffer(call).reply("world"));
//      EXPECT_EQ(client.expectReply().text(), "world");
#pragma once

#include <linux/android/binder.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "driver/Driver.h"

namespace binderhost::tests {

/** A message: bytes, and where the objects among them stand. */
struct Payload {
    std::string bytes;
    std::vector<binder_size_t> offsets;

    Payload() = default;
    Payload(const char* text) : bytes(text) {}             // NOLINT: calls read better
    Payload(std::string text) : bytes(std::move(text)) {}  // NOLINT: likewise

    Payload& add(const flat_binder_object& object) {
        bytes.resize((bytes.size() + 3) & ~size_t{3});
        offsets.push_back(bytes.size());
        bytes.append(reinterpret_cast<const char*>(&object), sizeof(object));
        return *this;
    }
    Payload& node(uint64_t ptr, uint64_t cookie = 0, uint32_t type = BINDER_TYPE_BINDER) {
        flat_binder_object object{};
        object.hdr.type = type;
        object.flags = FLAT_BINDER_FLAG_ACCEPTS_FDS;
        object.binder = ptr;
        object.cookie = cookie;
        return add(object);
    }
    Payload& handle(uint32_t handle, uint32_t type = BINDER_TYPE_HANDLE) {
        flat_binder_object object{};
        object.hdr.type = type;
        object.handle = handle;
        return add(object);
    }
    Payload& descriptor(int fd) { return handle(static_cast<uint32_t>(fd), BINDER_TYPE_FD); }
};

/** One BR_* command with what it carries. */
struct Return {
    uint32_t command = BR_NOOP;
    std::vector<uint8_t> argument;

    template <typename T>
    [[nodiscard]] T as() const {
        T out{};
        std::copy_n(argument.begin(), std::min(sizeof(T), argument.size()),
                    reinterpret_cast<uint8_t*>(&out));
        return out;
    }
    [[nodiscard]] binder_transaction_data data() const { return as<binder_transaction_data>(); }
    [[nodiscard]] std::string text() const {
        const auto transaction = data();
        return {reinterpret_cast<const char*>(transaction.data.ptr.buffer), transaction.data_size};
    }
    [[nodiscard]] flat_binder_object object(size_t index) const {
        const auto transaction = data();
        binder_size_t offset = 0;
        std::memcpy(&offset,
                    reinterpret_cast<const uint8_t*>(transaction.data.ptr.offsets) + index * 8, 8);
        flat_binder_object out;
        std::memcpy(&out, reinterpret_cast<const uint8_t*>(transaction.data.ptr.buffer) + offset,
                    sizeof(out));
        return out;
    }
};

/** A stream of BC_* commands; it keeps the payloads that its transactions point to. */
class Commands {
public:
    Commands& call(uint32_t handle, uint32_t code, Payload payload = {}, uint32_t flags = 0) {
        binder_transaction_data data{};
        data.target.handle = handle;
        data.code = code;
        data.flags = flags;
        return transaction(BC_TRANSACTION, data, std::move(payload));
    }
    Commands& oneway(uint32_t handle, uint32_t code, Payload payload = {}) {
        return call(handle, code, std::move(payload), TF_ONE_WAY);
    }
    Commands& reply(Payload payload = {}) { return transaction(BC_REPLY, {}, std::move(payload)); }
    Commands& freeBuffer(const Return& of) { return freeBuffer(of.data().data.ptr.buffer); }
    Commands& freeBuffer(uint64_t address) { return put(uint32_t{BC_FREE_BUFFER}).put(address); }
    Commands& looper() { return put(uint32_t{BC_ENTER_LOOPER}); }
    Commands& count(uint32_t command, uint32_t handle) { return put(command).put(handle); }
    Commands& object(uint32_t command, uint64_t ptr, uint64_t cookie) {
        return put(command).put(binder_ptr_cookie{ptr, cookie});
    }
    Commands& death(uint32_t command, uint32_t handle, uint64_t cookie) {
        return put(command).put(handle).put(cookie);
    }
    Commands& deadDone(uint64_t cookie) { return put(uint32_t{BC_DEAD_BINDER_DONE}).put(cookie); }
    Commands& raw(const binder_transaction_data& data, Payload payload) {
        return transaction(BC_TRANSACTION, data, std::move(payload));
    }
    template <typename T>
    Commands& put(const T& value) {
        const auto* raw = reinterpret_cast<const uint8_t*>(&value);
        bytes.insert(bytes.end(), raw, raw + sizeof(value));
        return *this;
    }

    std::vector<uint8_t> bytes;

private:
    Commands& transaction(uint32_t command, binder_transaction_data data, Payload payload) {
        const Payload& kept = mPayloads.emplace_back(std::move(payload));
        data.data_size = kept.bytes.size();
        data.offsets_size = kept.offsets.size() * sizeof(binder_size_t);
        data.data.ptr.buffer = reinterpret_cast<uintptr_t>(kept.bytes.data());
        data.data.ptr.offsets = reinterpret_cast<uintptr_t>(kept.offsets.data());
        return put(command).put(data);
    }

    std::deque<Payload> mPayloads;
};

/** Throws when something fails that no test is about; GoogleTest reports it. */
class RawClient {
public:
    explicit RawClient(const std::string& path) {
        std::string error;
        mDriver = openDriver(path, &error);
        if (!mDriver) throw std::runtime_error(error);
    }

    /** Another thread's view of the same process. */
    explicit RawClient(const RawClient* sibling) : mDriver(sibling->mDriver) {}

    [[nodiscard]] Driver& driver() { return *mDriver; }

    /** One BINDER_WRITE_READ as it is. */
    [[nodiscard]] int exchange(const Commands& commands, bool read) {
        uint8_t room[512];
        binder_write_read bwr{};
        bwr.write_buffer = reinterpret_cast<uintptr_t>(commands.bytes.data());
        bwr.write_size = commands.bytes.size();
        bwr.read_buffer = reinterpret_cast<uintptr_t>(room);
        bwr.read_size = read ? sizeof(room) : 0;
        const int status = mDriver->writeRead(&bwr);
        for (size_t at = 0; at < bwr.read_consumed;) {
            Return each;
            std::memcpy(&each.command, room + at, sizeof(each.command));
            at += sizeof(each.command);
            each.argument.assign(room + at, room + at + _IOC_SIZE(each.command));
            at += each.argument.size();
            if (each.command != BR_NOOP) mReturns.push_back(std::move(each));
        }
        return status;
    }

    /** Hands commands over and reads nothing. */
    void write(const Commands& commands) { check(exchange(commands, /*read=*/false)); }

    /** The next return, in the order of the driver; waits for it. */
    [[nodiscard]] Return next() {
        while (mReturns.empty())
            check(exchange({}, /*read=*/true));
        Return first = std::move(mReturns.front());
        mReturns.pop_front();
        return first;
    }

    /** The next return that is not about this process's own nodes, which are confirmed. */
    [[nodiscard]] Return nextEvent() {
        for (;;) {
            Return each = next();
            const auto object = each.as<binder_ptr_cookie>();
            if (each.command == BR_INCREFS) {
                write(Commands().object(BC_INCREFS_DONE, object.ptr, object.cookie));
            } else if (each.command == BR_ACQUIRE) {
                write(Commands().object(BC_ACQUIRE_DONE, object.ptr, object.cookie));
            } else if (each.command != BR_RELEASE && each.command != BR_DECREFS &&
                       each.command != BR_SPAWN_LOOPER) {
                return each;
            }
        }
    }

    [[nodiscard]] Return expect(uint32_t command) {
        Return each = nextEvent();
        if (each.command == command) return each;
        throw std::runtime_error("wanted " + name(command) + ", got " + name(each.command));
    }

    /** The answer to a two-way call: its completion, then the reply. */
    [[nodiscard]] Return expectReply() {
        (void)expect(BR_TRANSACTION_COMPLETE);
        return expect(BR_REPLY);
    }

    /** Becomes the context manager and a looper. */
    void publish() {
        check(mDriver->becomeContextManager());
        write(Commands().looper());
    }

    [[nodiscard]] static std::string name(uint32_t command) {
        static constexpr const char* kNames[] = {"BR_ERROR",
                                                 "BR_OK",
                                                 "BR_TRANSACTION",
                                                 "BR_REPLY",
                                                 "BR_ACQUIRE_RESULT",
                                                 "BR_DEAD_REPLY",
                                                 "BR_TRANSACTION_COMPLETE",
                                                 "BR_INCREFS",
                                                 "BR_ACQUIRE",
                                                 "BR_RELEASE",
                                                 "BR_DECREFS",
                                                 "BR_ATTEMPT_ACQUIRE",
                                                 "BR_NOOP",
                                                 "BR_SPAWN_LOOPER",
                                                 "BR_FINISHED",
                                                 "BR_DEAD_BINDER",
                                                 "BR_CLEAR_DEATH_NOTIFICATION_DONE",
                                                 "BR_FAILED_REPLY",
                                                 "BR_FROZEN_REPLY",
                                                 "BR_ONEWAY_SPAM_SUSPECT"};
        const uint32_t number = _IOC_NR(command);
        return number < std::size(kNames) ? kNames[number] : std::to_string(command);
    }

private:
    static void check(int status) {
        if (status) throw std::runtime_error("driver: " + std::string(std::strerror(-status)));
    }

    std::shared_ptr<Driver> mDriver;
    std::deque<Return> mReturns;
};

}  // namespace binderhost::tests
