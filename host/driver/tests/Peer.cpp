// SPDX-License-Identifier: Apache-2.0
#include "Peer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <thread>
#include <utility>

#include "Note.h"
#include "PeerClient.h"

namespace binderhost::tests {

using android::base::unique_fd;

namespace {

/** The commands of a note, at home in this process. */
struct Arrived {
    std::vector<uint8_t> commands;
    std::vector<Payload> payloads;

    explicit Arrived(Note* note) : commands(note->takeBlock<std::vector<uint8_t>>()) {
        payloads.resize(note->take<uint64_t>());
        for (Payload& payload : payloads) {
            const auto position = note->take<uint64_t>();
            payload.bytes = note->takeBlock<std::string>();
            payload.offsets = note->takeBlock<std::vector<binder_size_t>>();
            for (auto count = note->take<uint64_t>(); count > 0; count--) {
                const auto at = note->take<uint64_t>();
                const int number = note->received.at(note->take<uint64_t>()).get();
                std::memcpy(payload.bytes.data() + at + offsetof(flat_binder_object, handle),
                            &number, sizeof(number));
            }
            pointTo(position + offsetof(binder_transaction_data, data.ptr.buffer),
                    payload.bytes.data());
            pointTo(position + offsetof(binder_transaction_data, data.ptr.offsets),
                    payload.offsets.data());
        }
    }
    void pointTo(size_t at, const void* what) {
        const auto address = reinterpret_cast<binder_uintptr_t>(what);
        std::memcpy(commands.data() + at, &address, sizeof(address));
    }
};

/** A copy of a buffer, with its descriptors, which leave this process. */
void enclose(Return* each, Note* answer, std::vector<unique_fd>* passed) {
    each->copyBuffer();
    std::vector<uint64_t> places;
    for (size_t i = 0; i < each->offsets.size(); i++) {
        const flat_binder_object object = each->object(i);
        if (object.hdr.type != BINDER_TYPE_FD) continue;
        places.push_back(each->offsets[i]);
        passed->emplace_back(static_cast<int>(object.handle));
        if ((fcntl(passed->back().get(), F_GETFD) & FD_CLOEXEC) == 0) {
            throw std::runtime_error("a descriptor came that is open across exec");
        }
        answer->enclosed.push_back(passed->back().get());
    }
    answer->putBlock(each->bytes).putBlock(each->offsets).putBlock(places);
}

class PeerThread : private StepClient {
public:
    PeerThread(std::shared_ptr<Driver> driver, unique_fd socket)
          : mDriver(std::move(driver)), mSocket(std::move(socket)) {}

    void serve() {
        for (Note note; note.receive(mSocket.get(), /*deadline=*/-1);) {
            if (!handle(&note)) break;
        }
        mDriver->exitThread();
    }

private:
    [[nodiscard]] bool handle(Note* note) {
        Note answer;
        switch (note->take<Request>()) {
            case Request::Exchange:
                return exchangeFor(note);
            case Request::Run: {
                const auto function = note->take<PeerClient::Function>();
                answer.put(function(*mDriver, note->take<int64_t>()));
                break;
            }
            case Request::NewThread:
                std::thread([driver = mDriver, socket = std::move(note->received.at(0))]() mutable {
                    PeerThread(std::move(driver), std::move(socket)).serve();
                }).detach();
                answer.put(0);
                break;
        }
        return answer.send(mSocket.get());
    }

    [[nodiscard]] bool exchangeFor(Note* note) {
        const bool read = note->take<bool>();
        const Arrived arrived(note);
        uint8_t room[512];
        binder_write_read bwr{};
        bwr.write_buffer = reinterpret_cast<uintptr_t>(arrived.commands.data());
        bwr.write_size = arrived.commands.size();
        bwr.read_buffer = reinterpret_cast<uintptr_t>(room);
        bwr.read_size = read ? sizeof(room) : 0;
        int status = mDriver->writeRead(&bwr);
        // The kernel takes no further command before the failure of one has been read.
        for (bool failureRead = false; status == 0 && bwr.write_consumed < bwr.write_size;) {
            bwr.read_size = failureRead && !read ? bwr.read_consumed : sizeof(room);
            status = mDriver->writeRead(&bwr);
            failureRead = !failureRead;
        }
        Note answer;
        answer.put(status);
        answer.putBlock(std::string(reinterpret_cast<char*>(room), bwr.read_consumed));
        std::vector<unique_fd> passed;
        for (Return& each : cut(room, bwr.read_consumed)) {
            if (each.carriesBuffer()) enclose(&each, &answer, &passed);
        }
        return answer.send(mSocket.get());
    }

    int exchange(const Commands&, bool) override { return -1; }
    int becomeContextManager() override { return -1; }

    std::shared_ptr<Driver> mDriver;
    unique_fd mSocket;
};

}  // namespace

void runPeer(const std::string& path, int socket) {
    unique_fd own(socket);
    try {
        std::string error;
        std::shared_ptr<Driver> driver = openDriver(path, &error);
        Note opened;
        opened.putBlock(error);
        if (opened.send(own.get()) && driver) PeerThread(driver, std::move(own)).serve();
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "peer %d: %s\n", getpid(), problem.what());
        _exit(1);
    }
    _exit(0);
}

}  // namespace binderhost::tests
