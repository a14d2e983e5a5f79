// SPDX-License-Identifier: Apache-2.0
#include "PeerClient.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <map>
#include <utility>

#include "Note.h"
#include "Peer.h"

namespace binderhost::tests {

using android::base::unique_fd;

namespace {

constexpr int kDeadlineMillis = std::chrono::milliseconds(PeerClient::kDeadline).count();

std::pair<unique_fd, unique_fd> connected() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
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
    std::fflush(nullptr);
    const pid_t parent = getpid();
    mProcess->pid = fork();
    if (mProcess->pid < 0) throw std::runtime_error("no process for a peer");
    if (mProcess->pid == 0) {
        const bool changes = as == As::Ordinary && geteuid() == 0;
        if (changes && setresuid(kOrdinaryUid, kOrdinaryUid, kOrdinaryUid) != 0) _exit(1);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(1);
        closeAllBut(its.get());
        runPeer(path, its.release());
    }
    its.reset();
    mSocket = std::move(ours);
    mThreadId = mProcess->pid;
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
    mThreadId = run([](Driver&, int64_t) -> int { return gettid(); });
}

void PeerClient::Process::kill() {
    if (pid <= 0) return;
    ::kill(pid, SIGKILL);
    (void)waitpid(std::exchange(pid, -1), nullptr, 0);
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
