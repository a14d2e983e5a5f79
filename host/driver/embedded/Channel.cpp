// SPDX-License-Identifier: Apache-2.0
#include "embedded/Channel.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "embedded/ByteReader.h"
#include "embedded/Socket.h"

namespace binderhost {
namespace {

/** Errors that mean that the hub, or this process's place in it, is gone. */
int asRefusal(int status) {
    return status == -EPIPE || status == -ECONNRESET || status == -ENOTCONN || status == -EBADF
                   ? -ECONNREFUSED
                   : status;
}

uint8_t* pointerOf(binder_uintptr_t address) {
    return reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(address));
}

}  // namespace

Channel::Channel(std::shared_ptr<Session> session, unique_fd socket)
      : mSession(std::move(session)),
        mSocket(std::move(socket)),
        mGroup(getegid()),
        mRoomSize(frame::kMaxBytes),
        mRoom(new uint8_t[mRoomSize]) {}

Channel::~Channel() {
    if (mSession->ours() && mSocket.ok()) leave();
}

int Channel::writeRead(binder_write_read* bwr) {
    bool completedLocally = false;
    if (!post(bwr)) {
        if (const int status = write(bwr, &completedLocally)) return status;
    }
    if (bwr->read_consumed >= bwr->read_size) return 0;
    if (completedLocally) {
        const uint32_t returns[] = {BR_NOOP, BR_TRANSACTION_COMPLETE};
        std::memcpy(pointerOf(bwr->read_buffer) + bwr->read_consumed, returns, sizeof(returns));
        bwr->read_consumed += sizeof(returns);
        return 0;
    }
    return read(bwr);
}

bool Channel::post(binder_write_read* bwr) {
    binder_transaction_data call;
    uint32_t command = 0;
    if (bwr->write_size - bwr->write_consumed != sizeof(command) + sizeof(call)) return false;
    const uint8_t* commands = pointerOf(bwr->write_buffer) + bwr->write_consumed;
    std::memcpy(&command, commands, sizeof(command));
    if (command != BC_TRANSACTION) return false;
    std::memcpy(&call, commands + sizeof(command), sizeof(call));
    // What is owed or waits to be read has its turn first.
    const bool quiet = !mReadOutstanding && mCallsAnswered && mIncoming.returns.empty() &&
                       mIncoming.owed.empty();
    if (!quiet || !Outbox::suits(call)) return false;
    Outbox* outbox = mSession->outbox();
    if (!outbox || !outbox->post(call)) return false;
    bwr->write_consumed = bwr->write_size;
    appendBytes(&mIncoming.returns, uint32_t{BR_NOOP});
    appendBytes(&mIncoming.returns, uint32_t{BR_TRANSACTION_COMPLETE});
    return true;
}

int Channel::write(binder_write_read* bwr, bool* completedLocally) {
    const bool wantsRead = bwr->read_size - bwr->read_consumed >= 2 * sizeof(uint32_t) &&
                           mIncoming.returns.empty() && !mReadOutstanding;
    bool first = true;
    while (bwr->write_consumed < bwr->write_size || (first && wantsRead)) {
        const std::span<const uint8_t> rest(pointerOf(bwr->write_buffer) + bwr->write_consumed,
                                            bwr->write_size - bwr->write_consumed);
        size_t consumed = 0;
        const int status = writeSome(rest, wantsRead, first, &consumed, completedLocally);
        bwr->write_consumed += consumed;
        if (status) return status;
        first = false;
    }
    return 0;
}

int Channel::writeSome(std::span<const uint8_t> commands, bool wantsRead, bool whole,
                       size_t* consumed, bool* completedLocally) {
    using Mode = OutgoingFrame::Descriptors;
    for (const Mode mode : {Mode::Send, Mode::OnlyOpenOnes, Mode::None}) {
        OutgoingFrame frame(mSession->buffers(), mode);
        frame.addPacked(mIncoming.owed);
        const bool sound = frame.add(commands);
        const bool last = sound && frame.consumed() == commands.size();
        const bool local =
                whole && last && wantsRead && mCallsInHand > 0 && frame.needsNoCompletion();
        if (!(last && wantsRead) && frame.empty()) {
            *consumed = frame.consumed();
            return sound ? 0 : -EINVAL;
        }
        frame.setFlags((last && wantsRead ? frame::kRead : 0) |
                       (local ? frame::kCompletesLocally : 0));
        const int status = sendFrame(frame);
        // The kernel names no culprit: look for it, and in the end send no descriptor at all.
        const bool refused = status == -EBADF || status == -ETOOMANYREFS;
        if (refused && mode != Mode::None && !frame.descriptors().empty()) continue;
        if (status) return asRefusal(status);
        *consumed = frame.consumed();
        *completedLocally = local;
        mIncoming.owed.clear();
        for (const uint64_t address : frame.freed())
            mSession->buffers().release(address);
        mCallsInHand -= std::min(mCallsInHand, frame.replies());
        if (last && wantsRead) mReadOutstanding = true;
        mCallsAnswered = (last && wantsRead) || (mCallsAnswered && frame.calls() == 0);
        return sound ? 0 : -EINVAL;
    }
    return -ECONNREFUSED;
}

int Channel::sendFrame(const OutgoingFrame& frame) {
    if (frame.calls() == 0 || !mSession->claims())
        return sendBytes(frame.bytes(), frame.descriptors());
    return sendClaiming(frame.bytes(), frame.descriptors());
}

int Channel::sendBytes(std::span<const uint8_t> bytes, std::span<const int> descriptors) {
    const iovec part{const_cast<uint8_t*>(bytes.data()), bytes.size()};
    return sendRecord(mSocket.get(), {&part, 1}, descriptors, /*credentials=*/nullptr, /*flags=*/0);
}

int Channel::sendClaiming(std::span<const uint8_t> bytes, std::span<const int> descriptors) {
    const iovec part{const_cast<uint8_t*>(bytes.data()), bytes.size()};
    ucred credentials{mSession->pid(), geteuid(), mGroup};
    int status = sendRecord(mSocket.get(), {&part, 1}, descriptors, &credentials, /*flags=*/0);
    if (status != -EPERM) return status;
    // The kernel lets nobody claim a group that is no longer theirs; nobody looks at it here.
    credentials.gid = mGroup = getegid();
    return sendRecord(mSocket.get(), {&part, 1}, descriptors, &credentials, /*flags=*/0);
}

int Channel::receive() {
    const int status = receiveRecord(mSocket.get(), {mRoom.get(), mRoomSize}, 0, &mReceived);
    if (status) return asRefusal(status);
    if (mReceived.size == 0) return -ECONNREFUSED;
    mReadOutstanding = false;
    const bool sound = !mReceived.cut && mIncoming.add({mRoom.get(), mReceived.size}, &mReceived,
                                                       &mSession->buffers());
    mReceived.descriptors.clear();
    if (!sound) {
        std::fprintf(stderr, "binder: %s sent what no hub sends\n", mSession->path().c_str());
        mSocket.reset();
        return -ECONNREFUSED;
    }
    return 0;
}

int Channel::read(binder_write_read* bwr) {
    while (mIncoming.returns.empty()) {
        if (!mReadOutstanding) {
            size_t consumed = 0;
            bool completedLocally = false;
            const int status = writeSome({}, /*wantsRead=*/true, /*whole=*/false, &consumed,
                                         &completedLocally);
            if (status) return status;
        }
        if (const int status = receive()) return status;
        mCallsInHand += mIncoming.calls;
        mIncoming.calls = 0;
        // A call that had to be refused leaves nothing to report: wait for the next.
        uint32_t first = 0;
        const bool nothing = mIncoming.returns.size() == sizeof(first) && !mIncoming.owed.empty();
        if (nothing) std::memcpy(&first, mIncoming.returns.data(), sizeof(first));
        if (first == BR_NOOP) mIncoming.returns.clear();
    }
    handOut(bwr);
    return 0;
}

void Channel::handOut(binder_write_read* bwr) {
    auto& returns = mIncoming.returns;
    while (mHandedOut < returns.size()) {
        uint32_t command = 0;
        std::memcpy(&command, returns.data() + mHandedOut, sizeof(command));
        const size_t size = sizeof(command) + _IOC_SIZE(command);
        if (bwr->read_size - bwr->read_consumed < size) return;
        std::memcpy(pointerOf(bwr->read_buffer) + bwr->read_consumed, returns.data() + mHandedOut,
                    size);
        bwr->read_consumed += size;
        mHandedOut += size;
    }
    returns.clear();
    mHandedOut = 0;
}

void Channel::leave() {
    if (mReadOutstanding) {
        // What the hub has sent meanwhile is given back, not lost.
        frame::Header cancel;
        cancel.kind = frame::Kind::CancelRead;
        const auto* bytes = reinterpret_cast<const uint8_t*>(&cancel);
        int status = sendBytes({bytes, sizeof(cancel)}, {});
        while (!status && mReadOutstanding) {
            status = receive();
            if (status == -EINTR) status = 0;
        }
        if (status) return;
    }
    mIncoming.returns.erase(mIncoming.returns.begin(),
                            mIncoming.returns.begin() + static_cast<ptrdiff_t>(mHandedOut));
    mIncoming.abandon(&mSession->buffers());
    if (mIncoming.owed.empty()) return;
    OutgoingFrame last(mSession->buffers(), OutgoingFrame::Descriptors::None);
    last.addPacked(mIncoming.owed);
    last.setFlags(0);
    if (const int status = sendFrame(last); status && asRefusal(status) != -ECONNREFUSED) {
        std::fprintf(stderr, "binder: a thread left without giving back its buffers: %d\n", status);
    }
}

}  // namespace binderhost
