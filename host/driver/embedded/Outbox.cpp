// SPDX-License-Identifier: Apache-2.0
#include "embedded/Outbox.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "embedded/Clock.h"

namespace binderhost {

using android::base::unique_fd;

Outbox::Outbox(int letters, int room, unique_fd bell)
      : mLetters(letters, PROT_READ | PROT_WRITE),
        mRoom(room, PROT_READ),
        mBell(std::move(bell)),
        mSent(outbox::kHandles) {}

std::unique_ptr<Outbox> Outbox::open(std::vector<unique_fd> descriptors) {
    if (descriptors.size() != 3) return nullptr;
    std::unique_ptr<Outbox> made(
            new Outbox(descriptors[0].get(), descriptors[1].get(), std::move(descriptors[2])));
    return made->mLetters.ok() && made->mRoom.ok() ? std::move(made) : nullptr;
}

bool Outbox::suits(const binder_transaction_data& call) {
    return (call.flags & TF_ONE_WAY) != 0 && call.offsets_size == 0 &&
           call.data_size <= outbox::kMaxData && call.target.handle != 0 &&
           call.target.handle < outbox::kHandles;
}

bool Outbox::post(const binder_transaction_data& call) {
    const uint64_t size = outbox::recordSize(call.data_size);
    const std::lock_guard lock(mLock);
    const uint64_t toEnd = outbox::kRingBytes - mWritten % outbox::kRingBytes;
    const uint64_t filler = toEnd < size ? toEnd : 0;
    if (!hasRoomLocked(call.target.handle, size, filler)) return false;
    writeLocked(call, size, filler);
    // The hub sets it to 0 before it looks: it sees the record, or is told.
    if (mLetters->rung.exchange(1) == 0) {
        const uint64_t one = 1;
        if (write(mBell.get(), &one, sizeof(one)) != sizeof(one)) {
            std::fprintf(stderr, "binder: the hub's bell does not ring: %m\n");
        }
    }
    return true;
}

bool Outbox::hasRoomLocked(uint32_t handle, uint64_t size, uint64_t filler) const {
    return outbox::left(mRoom->limit[handle].load(), mSent[handle]) >= size &&
           mWritten + filler + size - mRoom->taken.load() <= outbox::kRingBytes;
}

uint8_t* Outbox::placeLocked() const {
    return mLetters->ring + mWritten % outbox::kRingBytes;
}

void Outbox::writeLocked(const binder_transaction_data& call, uint64_t size, uint64_t filler) {
    if (filler) {
        const outbox::Filler head{.size = static_cast<uint32_t>(filler)};
        std::memcpy(placeLocked(), &head, sizeof(head));
        mWritten += filler;
    }
    outbox::Record head;
    head.size = static_cast<uint32_t>(size);
    head.handle = call.target.handle;
    head.stamp = monotonicNow();
    head.code = call.code;
    head.flags = call.flags;
    head.dataSize = static_cast<uint32_t>(call.data_size);
    std::memcpy(placeLocked(), &head, sizeof(head));
    const auto* data = reinterpret_cast<const void*>(static_cast<uintptr_t>(call.data.ptr.buffer));
    if (call.data_size) std::memcpy(placeLocked() + sizeof(head), data, call.data_size);
    mWritten += size;
    mSent[head.handle] += size;
    mLetters->written.store(mWritten);
}

}  // namespace binderhost
