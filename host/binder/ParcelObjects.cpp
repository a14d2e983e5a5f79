// SPDX-License-Identifier: Apache-2.0
//
// Parcel: binders and descriptors, which the driver translates on the way.
//
//      local binder    BINDER  its reference block and address; comes back unchanged when it
//                              comes home, so that it is the same object
//      remote binder   HANDLE  the driver's number of it in this process
//      descriptor      FD      a number in this process
//
// Behind every binder stands a word with its stability: 12 (system), 0 for a null binder.
#include <binder/BpBinder.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <driver/Driver.h>
#include <fcntl.h>
#include <log/log.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace android {
namespace {

constexpr int32_t kStabilitySystem = 12;
constexpr int32_t kStabilityNone = 0;
constexpr uint32_t kBinderFlags = 0x7f | FLAT_BINDER_FLAG_ACCEPTS_FDS;

flat_binder_object flatten(const sp<IBinder>& binder) {
    flat_binder_object object{};
    object.flags = kBinderFlags;
    object.hdr.type = BINDER_TYPE_BINDER;
    if (binder == nullptr) return object;
    if (BpBinder* proxy = binder->remoteBinder(); proxy != nullptr) {
        object.hdr.type = BINDER_TYPE_HANDLE;
        object.handle = uint32_t(proxy->handle());
    } else {
        BBinder* local = binder->localBinder();
        object.binder = reinterpret_cast<uintptr_t>(local->getWeakRefs());
        object.cookie = reinterpret_cast<uintptr_t>(local);
    }
    return object;
}

sp<IBinder> unflatten(const flat_binder_object& object) {
    if (object.hdr.type == BINDER_TYPE_HANDLE) {
        return ProcessState::self()->getStrongProxyForHandle(int32_t(object.handle));
    }
    return sp<IBinder>(reinterpret_cast<BBinder*>(object.cookie));
}

bool isDescriptor(const flat_binder_object& object) {
    return object.hdr.type == BINDER_TYPE_FD;
}

}  // namespace

static_assert(sizeof(flat_binder_object) == Parcel::kObjectSize);

status_t Parcel::writeObject(const flat_binder_object& object) {
    const size_t offset = mDataPos;
    uint8_t* place = grow(sizeof(object));
    if (place == nullptr) return mError;
    std::memcpy(place, &object, sizeof(object));
    const auto next = std::lower_bound(mObjects.begin(), mObjects.end(), offset);
    if (next == mObjects.end() || *next != offset) mObjects.insert(next, offset);
    return OK;
}

bool Parcel::readObject(flat_binder_object* out) const {
    if (dataAvail() < sizeof(*out)) return false;
    // Objects stand at multiples of 4 only, so they are copied, not pointed to.
    std::memcpy(out, mData + mDataPos, sizeof(*out));
    const bool stands = std::binary_search(mObjects.begin(), mObjects.end(), mDataPos);
    // A null binder is not among the objects: there is nothing to translate.
    const bool null = !stands && !touchesObject(mDataPos, sizeof(*out)) &&
                      out->hdr.type == BINDER_TYPE_BINDER && out->binder == 0 && out->cookie == 0;
    if (!stands && !null) {
        ALOGE("Parcel: no object stands at %zu", mDataPos);
        return false;
    }
    mDataPos += sizeof(*out);
    return true;
}

status_t Parcel::writeStrongBinder(const sp<IBinder>& binder) {
    const flat_binder_object object = flatten(binder);
    if (binder == nullptr) {
        if (const status_t status = write(&object, sizeof(object)); status != OK) return status;
        return writeInt32(kStabilityNone);
    }
    if (const status_t status = writeObject(object); status != OK) return status;
    mHeldBinders.push_back(binder);
    return writeInt32(kStabilitySystem);
}

status_t Parcel::readNullableStrongBinder(sp<IBinder>* out) const {
    const size_t start = mDataPos;
    flat_binder_object object{};
    if (!readObject(&object)) return BAD_TYPE;
    if (object.hdr.type != BINDER_TYPE_BINDER && object.hdr.type != BINDER_TYPE_HANDLE) {
        mDataPos = start;
        return BAD_TYPE;
    }
    int32_t stability = 0;
    if (const status_t status = readInt32(&stability); status != OK) return status;
    *out = unflatten(object);
    return OK;
}

status_t Parcel::readStrongBinder(sp<IBinder>* out) const {
    sp<IBinder> binder;
    if (const status_t status = readNullableStrongBinder(&binder); status != OK) return status;
    if (binder == nullptr) return UNEXPECTED_NULL;
    *out = std::move(binder);
    return OK;
}

sp<IBinder> Parcel::readStrongBinder() const {
    sp<IBinder> binder;
    return readNullableStrongBinder(&binder) == OK ? binder : nullptr;
}

status_t Parcel::writeFileDescriptor(int fd, bool takeOwnership) {
    base::unique_fd unsent(takeOwnership ? fd : -1);
    if (!mAllowFds) {
        mError = mError != OK ? mError : FDS_NOT_ALLOWED;
        return FDS_NOT_ALLOWED;
    }
    flat_binder_object object{};
    object.hdr.type = BINDER_TYPE_FD;
    object.flags = kBinderFlags;
    object.handle = uint32_t(fd);
    object.cookie = takeOwnership ? 1 : 0;
    if (const status_t status = writeObject(object); status != OK) return status;
    // From here on the parcel closes it.
    [[maybe_unused]] const int kept = unsent.release();
    return OK;
}

status_t Parcel::writeDupFileDescriptor(int fd) {
    const int copy = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) return -errno;
    return writeFileDescriptor(copy, /*takeOwnership=*/true);
}

status_t Parcel::writeUniqueFileDescriptor(const base::unique_fd& fd) {
    return writeDupFileDescriptor(fd.get());
}

int Parcel::readFileDescriptor() const {
    const size_t start = mDataPos;
    flat_binder_object object{};
    if (!readObject(&object)) return BAD_TYPE;
    if (!isDescriptor(object)) {
        mDataPos = start;
        return BAD_TYPE;
    }
    return int(object.handle);
}

status_t Parcel::readUniqueFileDescriptor(base::unique_fd* out) const {
    const int fd = readFileDescriptor();
    if (fd < 0) return BAD_TYPE;
    out->reset(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    return out->ok() ? OK : BAD_VALUE;
}

bool Parcel::pushAllowFds(bool allowFds) {
    return std::exchange(mAllowFds, mAllowFds && allowFds);
}

bool Parcel::hasFileDescriptors() const {
    return std::any_of(mObjects.begin(), mObjects.end(), [this](uint64_t offset) {
        flat_binder_object object{};
        std::memcpy(&object, mData + offset, sizeof(object));
        return isDescriptor(object);
    });
}

void Parcel::closeFileDescriptors(size_t firstObject) {
    for (size_t i = firstObject; i < mObjects.size(); i++) {
        flat_binder_object object{};
        std::memcpy(&object, mData + mObjects[i], sizeof(object));
        const bool ours = mRelease != nullptr || object.cookie != 0;
        if (isDescriptor(object) && ours) close(int(object.handle));
    }
}

status_t Parcel::appendObjects(const Parcel& other, size_t start, size_t length, size_t target) {
    for (const uint64_t offset : other.mObjects) {
        if (offset < start || offset + kObjectSize > start + length) continue;
        flat_binder_object object{};
        std::memcpy(&object, other.mData + offset, sizeof(object));
        const bool binder =
                object.hdr.type == BINDER_TYPE_BINDER || object.hdr.type == BINDER_TYPE_HANDLE;
        if (binder) {
            mHeldBinders.push_back(unflatten(object));
        } else if (!isDescriptor(object)) {
            // What another runtime sent, and this one neither reads nor can keep alive.
            return BAD_TYPE;
        } else if (!mAllowFds) {
            return FDS_NOT_ALLOWED;
        } else {
            const int copy = fcntl(int(object.handle), F_DUPFD_CLOEXEC, 0);
            if (copy < 0) return -errno;
            object.handle = uint32_t(copy);
            object.cookie = 1;
        }
        const size_t place = target + (offset - start);
        std::memcpy(mStorage.data() + place, &object, sizeof(object));
        mObjects.push_back(place);
    }
    return OK;
}

status_t Parcel::appendFrom(const Parcel* other, size_t start, size_t length) {
    if (start > other->dataSize() || length > other->dataSize() - start) return BAD_VALUE;
    if (other == this) return INVALID_OPERATION;
    setDataPosition(mDataSize);
    const size_t target = mDataPos;
    if (target % 4 != 0 || start % 4 != 0) return BAD_VALUE;
    if (const status_t status = write(other->data() + start, length); status != OK) return status;
    const status_t status = appendObjects(*other, start, length, target);
    if (status != OK) mError = status;
    return status;
}

}  // namespace android
