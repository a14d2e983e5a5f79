// SPDX-License-Identifier: Apache-2.0
#include "PeerClient.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <map>
#include <memory>
#include <thread>
#include <utility>

#include "Note.h"

namespace binderhost::tests {

using android::base::unique_fd;

namespace {

constexpr int kDeadlineMillis = std::chrono::milliseconds(PeerClient::kDeadline).count();

std::pair<unique_fd, unique_fd> connected() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::runtime_error("no sockets for a peer");
    }
    return {unique_fd(ends[0]), unique_fd(ends[1])};
}

/** What the test has open is none of a peer's business. */
void closeAllBut(int kept) {
    const auto number = static_cast<unsigned>(kept);
    if (number > 3) (void)close_range(3, number - 1, 0);
    (void)close_range(number + 1, ~0U, 0);
}

/** What the first byte of a note to a peer wants. */
enum class Request : uint8_t { Exchange, Run, NewThread };

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

/** What leads a thread of a peer. */
class PeerThread {
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
        for (Return& each : StepClient::cut(room, bwr.read_consumed)) {
            if (each.carriesBuffer()) enclose(&each, &answer, &passed);
        }
        return answer.send(mSocket.get());
    }

    std::shared_ptr<Driver> mDriver;
    unique_fd mSocket;
};

/** Serves a socket until it is shut. */
void runPeer(const std::string& path, unique_fd socket) {
    std::string error;
    std::shared_ptr<Driver> driver = openDriver(path, &error);
    Note opened;
    opened.putBlock(error);
    if (opened.send(socket.get()) && driver) PeerThread(driver, std::move(socket)).serve();
}

/** The payloads, each with the ordinals of the descriptors that it sends. */
void putPayloads(const Commands& commands, Note* note) {
    std::map<int, uint64_t> ordinals;
    note->put(uint64_t{commands.transactions().size()});
    for (const auto& [position, payload] : commands.transactions()) {
        std::vector<std::pair<uint64_t, uint64_t>> enclosed;
        for (const binder_size_t at : payload.descriptors) {
            int number = -1;
            std::memcpy(&number, payload.bytes.data() + at + offsetof(flat_binder_object, handle),
                        sizeof(number));
            if (fcntl(number, F_GETFD) < 0) continue;  // it arrives as the number that it is
            const auto [known, isNew] = ordinals.try_emplace(number, note->enclosed.size());
            if (isNew) note->enclosed.push_back(number);
            enclosed.emplace_back(at, known->second);
        }
        note->put(uint64_t{position}).putBlock(payload.bytes).putBlock(payload.offsets);
        note->put(uint64_t{enclosed.size()});
        for (const auto& [at, ordinal] : enclosed)
            note->put(at).put(ordinal);
    }
}

/** The copy of a buffer; its descriptors get the numbers that they have here. */
void takeBuffer(Note* note, size_t* descriptorsSeen, Return* out) {
    out->bytes = note->takeBlock<std::string>();
    out->offsets = note->takeBlock<std::vector<binder_size_t>>();
    for (const uint64_t at : note->takeBlock<std::vector<uint64_t>>()) {
        auto& descriptor = note->received.at((*descriptorsSeen)++);
        const int number = descriptor.get();
        std::memcpy(out->bytes.data() + at + offsetof(flat_binder_object, handle), &number,
                    sizeof(number));
        out->descriptors.push_back(std::make_shared<unique_fd>(std::move(descriptor)));
    }
}

}  // namespace

PeerClient::PeerClient(const std::string& path, As as) {
    auto [ours, its] = connected();
    mProcess = std::make_shared<Child>([&path, as, socket = its.get()](Child::Door&) {
        if (as == As::Ordinary && geteuid() == 0) {
            require(setresuid(kOrdinaryUid, kOrdinaryUid, kOrdinaryUid) == 0, "setresuid");
            prctl(PR_SET_PDEATHSIG, SIGKILL);  // the change has undone it
        }
        closeAllBut(socket);
        runPeer(path, unique_fd(socket));
    });
    its.reset();
    mSocket = std::move(ours);
    Note opened;
    if (!opened.receive(mSocket.get(), kDeadlineMillis)) throw std::runtime_error("no peer");
    const auto error = opened.takeBlock<std::string>();
    if (!error.empty()) throw std::runtime_error(error);
}

PeerClient::PeerClient(const PeerClient* sibling) : mProcess(sibling->mProcess) {
    auto [ours, its] = connected();
    Note request;
    request.put(Request::NewThread).enclosed.push_back(its.get());
    Note answer;
    if (!request.send(sibling->mSocket.get()) ||
        !answer.receive(sibling->mSocket.get(), kDeadlineMillis)) {
        throw std::runtime_error("a peer is gone");
    }
    mSocket = std::move(ours);
}

int PeerClient::exchange(const Commands& commands, bool read) {
    if (!mReading) {
        send(commands, read);
    } else if (!read || !commands.bytes.empty()) {
        throw std::logic_error("the peer's thread is reading");
    }
    return receive();
}

void PeerClient::beginRead() {
    send({}, /*read=*/true);
    mReading = true;
}

void PeerClient::send(const Commands& commands, bool read) {
    Note note;
    note.put(Request::Exchange).put(read).putBlock(commands.bytes);
    putPayloads(commands, &note);
    if (!note.send(mSocket.get())) throw std::runtime_error("the peer is gone");
}

int PeerClient::receive() {
    mReading = true;  // still, when this throws
    Note note;
    if (!note.receive(mSocket.get(), kDeadlineMillis)) throw std::runtime_error("the peer is gone");
    mReading = false;
    const int status = note.take<int>();
    const auto room = note.takeBlock<std::vector<uint8_t>>();
    std::vector<Return> returns = cut(room.data(), room.size());
    size_t descriptorsSeen = 0;
    for (Return& each : returns) {
        if (each.carriesBuffer()) takeBuffer(&note, &descriptorsSeen, &each);
    }
    keep(std::move(returns));
    return status;
}

int PeerClient::run(Function function, int64_t argument) {
    Note note;
    note.put(Request::Run).put(function).put(argument);
    Note answer;
    if (!note.send(mSocket.get()) || !answer.receive(mSocket.get(), kDeadlineMillis)) {
        throw std::runtime_error("the peer is gone");
    }
    return answer.take<int>();
}

int PeerClient::becomeContextManager() {
    return run([](Driver& driver, int64_t) { return driver.becomeContextManager(); });
}

void PeerClient::exitThread() {
    (void)run([](Driver& driver, int64_t) {
        driver.exitThread();
        return 0;
    });
}

int PeerClient::setMaxThreads(uint32_t count) {
    return run([](Driver& driver,
                  int64_t wanted) { return driver.setMaxThreads(static_cast<uint32_t>(wanted)); },
               count);
}

int PeerClient::enableOnewaySpamDetection(bool enable) {
    return run([](Driver& driver,
                  int64_t wanted) { return driver.enableOnewaySpamDetection(wanted != 0); },
               enable);
}

}  // namespace binderhost::tests
