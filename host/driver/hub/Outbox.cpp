// SPDX-License-Identifier: Apache-2.0
#include "hub/Outbox.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "embedded/Clock.h"

namespace binderhost::hub {

using android::base::unique_fd;

namespace {

/** A memory file of a fixed size. Not ok() when the kernel refuses. */
unique_fd makeFile(const char* name, size_t size) {
    unique_fd file(memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!file.ok() || ftruncate(file.get(), static_cast<off_t>(size)) ||
        fcntl(file.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW)) {
        return {};
    }
    return file;
}

}  // namespace

Outbox::Outbox(uid_t uid, int letters, int room)
      : mUid(uid),
        mLetters(letters, PROT_READ | PROT_WRITE),
        mRoom(room, PROT_READ | PROT_WRITE),
        mAccounts(outbox::kHandles) {}

std::unique_ptr<Outbox> Outbox::make(uid_t uid, std::array<unique_fd, 2>* descriptors) {
    unique_fd letters = makeFile("binder-letters", sizeof(outbox::Letters));
    unique_fd room = makeFile("binder-room", sizeof(outbox::Room));
    if (!letters.ok() || !room.ok()) return nullptr;
    std::unique_ptr<Outbox> made(new Outbox(uid, letters.get(), room.get()));
    // What is mapped already stays writable.
    if (!made->mLetters.ok() || !made->mRoom.ok() ||
        fcntl(letters.get(), F_ADD_SEALS, F_SEAL_SEAL) ||
        fcntl(room.get(), F_ADD_SEALS, F_SEAL_FUTURE_WRITE | F_SEAL_SEAL)) {
        return nullptr;
    }
    *descriptors = {std::move(letters), std::move(room)};
    return made;
}

void Outbox::listen() {
    mLetters->rung.store(0);
    mWritten = mLetters->written.load();
}

const Outbox::Letter* Outbox::peek() {
    while (!mFront && !mBroken) {
        if (!copyFront()) return nullptr;
    }
    return mFront ? &*mFront : nullptr;
}

bool Outbox::breakOff() {
    mBroken = true;
    return false;
}

bool Outbox::copyFront() {
    const uint64_t waiting = mWritten - mTaken;
    if (waiting == 0) return false;
    if (waiting > outbox::kRingBytes || waiting % 8 != 0) return breakOff();
    const uint64_t at = mTaken % outbox::kRingBytes;
    outbox::Filler filler;
    std::memcpy(&filler, mLetters->ring + at, sizeof(filler));
    const uint64_t size = filler.size;
    if (size < sizeof(filler) || size % 8 != 0 || size > waiting ||
        size > outbox::kRingBytes - at) {
        return breakOff();
    }
    if (filler.handle == 0) {
        // No other has a use; a ring full of them would cost the hub more than letters.
        if (at + size != outbox::kRingBytes) return breakOff();
        mTaken += size;
        mRoom->taken.store(mTaken);
        return true;
    }
    if (size < sizeof(outbox::Record) || size > outbox::recordSize(outbox::kMaxData)) {
        return breakOff();
    }
    mCopy.resize(size);
    std::memcpy(mCopy.data(), mLetters->ring + at, size);
    Letter letter;
    std::memcpy(&letter.head, mCopy.data(), sizeof(letter.head));
    // The memory may have changed since its size was read.
    letter.head.size = static_cast<uint32_t>(size);
    if (letter.head.handle == 0 || letter.head.handle >= outbox::kHandles ||
        outbox::recordSize(letter.head.dataSize) != size) {
        return breakOff();
    }
    const Account& account = mAccounts[letter.head.handle];
    if (outbox::left(account.highest, account.received) < size) return breakOff();
    // One from the future would never be taken.
    letter.head.stamp = std::min(letter.head.stamp, monotonicNow());
    letter.data = std::span(mCopy).subspan(sizeof(letter.head), letter.head.dataSize);
    mFront = letter;
    return true;
}

void Outbox::take() {
    mAccounts[mFront->head.handle].received += mFront->head.size;
    mTaken += mFront->head.size;
    mFront.reset();
    mRoom->taken.store(mTaken);
}

uint64_t Outbox::promise(uint32_t handle, bool more) {
    if (handle == 0 || handle >= outbox::kHandles) return 0;
    Account& account = mAccounts[handle];
    const uint64_t limit = account.received + (more ? outbox::kPromise : 0);
    account.highest = std::max(account.highest, limit);
    // What was promised once may be on its way, whatever the process is told now.
    account.charged = account.highest - account.received;
    mRoom->limit[handle].store(limit);
    return account.charged;
}

void Outbox::forget(uint32_t handle) {
    if (handle == 0 || handle >= outbox::kHandles) return;
    Account& account = mAccounts[handle];
    account.highest = account.received;
    account.charged = 0;
    mRoom->limit[handle].store(account.received);
}

uint64_t Outbox::charged(uint32_t handle) const {
    return handle < outbox::kHandles ? mAccounts[handle].charged : 0;
}

}  // namespace binderhost::hub
