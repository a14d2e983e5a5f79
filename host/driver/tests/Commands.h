// SPDX-License-Identifier: Apache-2.0
//
// What a test says to a driver and hears from it: bare BC_* and BR_*.
//
//      Commands().freeBuffer(call).reply(Payload("text").node(kPtr))
#pragma once

#include <android-base/unique_fd.h>
#include <linux/android/binder.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace binderhost::tests {

/** A message: bytes, and where the objects among them stand. */
struct Payload {
    std::string bytes;
    std::vector<binder_size_t> offsets;
    /** Where among the bytes the sender's own descriptors stand. */
    std::vector<binder_size_t> descriptors;

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
    Payload& descriptor(int fd) {
        handle(static_cast<uint32_t>(fd), BINDER_TYPE_FD);
        descriptors.push_back(offsets.back());
        return *this;
    }
};

/** One BR_* command with what it carries; of a transaction, a copy of its buffer. */
struct Return {
    uint32_t command = BR_NOOP;
    std::vector<uint8_t> argument;
    std::string bytes;
    std::vector<binder_size_t> offsets;
    /** A peer's descriptors, whose numbers here the objects hold. */
    std::vector<std::shared_ptr<android::base::unique_fd>> descriptors;

    template <typename T>
    [[nodiscard]] T as() const {
        T out{};
        std::copy_n(argument.begin(), std::min(sizeof(T), argument.size()),
                    reinterpret_cast<uint8_t*>(&out));
        return out;
    }
    [[nodiscard]] binder_transaction_data data() const { return as<binder_transaction_data>(); }
    [[nodiscard]] bool carriesBuffer() const {
        return command == BR_TRANSACTION || command == BR_REPLY;
    }
    /** In the process that was sent it, while the buffer is not freed. */
    void copyBuffer() {
        if (!carriesBuffer()) return;
        const binder_transaction_data sent = data();
        bytes.assign(reinterpret_cast<const char*>(sent.data.ptr.buffer), sent.data_size);
        offsets.resize(sent.offsets_size / sizeof(binder_size_t));
        if (offsets.empty()) return;
        std::memcpy(offsets.data(), reinterpret_cast<const void*>(sent.data.ptr.offsets),
                    offsets.size() * sizeof(binder_size_t));
    }
    [[nodiscard]] const std::string& text() const { return bytes; }
    [[nodiscard]] flat_binder_object object(size_t index) const {
        flat_binder_object out;
        std::memcpy(&out, bytes.data() + offsets.at(index), sizeof(out));
        return out;
    }
};

/** A stream of BC_* commands; it keeps the payloads that its transactions point to. */
class Commands {
public:
    Commands() = default;
    Commands(Commands&&) = default;
    /** A copy would point to the payloads of the other. */
    Commands(const Commands&) = delete;

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

    /** Where among the bytes a binder_transaction_data stands, and what it points to. */
    struct Transaction {
        size_t position;
        Payload payload;
    };
    [[nodiscard]] const std::deque<Transaction>& transactions() const { return mTransactions; }

private:
    Commands& transaction(uint32_t command, binder_transaction_data data, Payload payload) {
        const size_t position = bytes.size() + sizeof(command);
        const Payload& kept =
                mTransactions.emplace_back(Transaction{position, std::move(payload)}).payload;
        data.data_size = kept.bytes.size();
        data.offsets_size = kept.offsets.size() * sizeof(binder_size_t);
        data.data.ptr.buffer = reinterpret_cast<uintptr_t>(kept.bytes.data());
        data.data.ptr.offsets = reinterpret_cast<uintptr_t>(kept.offsets.data());
        return put(command).put(data);
    }

    std::deque<Transaction> mTransactions;
};

}  // namespace binderhost::tests
