// SPDX-License-Identifier: Apache-2.0
//
// Parcel: storage, plain values, strings and the interface token.
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <log/log.h>
#include <utils/Unicode.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

namespace android {
namespace {

constexpr size_t kMaxSize = size_t(std::numeric_limits<int32_t>::max()) - 3;
constexpr size_t kFirstCapacity = 128;
constexpr int32_t kAbsent = -1;
constexpr int32_t kPenaltyGather = std::numeric_limits<int32_t>::min();
constexpr int32_t kTokenHeader = int32_t(internal::packLetters("SYST"));

/** length rounded up to whole words. length must not be above kMaxSize. */
constexpr size_t padded(size_t length) {
    return (length + 3) & ~size_t{3};
}

}  // namespace

Parcel::Parcel() = default;

Parcel::~Parcel() {
    freeData();
}

void Parcel::freeData() {
    if (!mObjects.empty()) closeFileDescriptors(/*firstObject=*/0);
    const bool prompt = !mObjects.empty() || mDataSize > kPromptReleaseSize;
    if (mRelease != nullptr) mRelease(mData, prompt);
    mRelease = nullptr;
    mData = nullptr;
    mDataSize = 0;
    mDataPos = 0;
    mError = OK;
    mStorage.clear();
    mObjects.clear();
    if (!mHeldBinders.empty()) mHeldBinders.clear();
}

size_t Parcel::dataCapacity() const {
    return mRelease != nullptr ? mDataSize : mStorage.capacity();
}

void Parcel::setDataPosition(size_t position) const {
    mDataPos = std::min(position, kMaxSize);
}

status_t Parcel::setDataSize(size_t size) {
    if (size > kMaxSize) return BAD_VALUE;
    if (mRelease != nullptr) {
        if (size != 0) return INVALID_OPERATION;
        freeData();
        return OK;
    }
    const auto cut = std::find_if(mObjects.begin(), mObjects.end(),
                                  [size](uint64_t offset) { return offset + kObjectSize > size; });
    closeFileDescriptors(size_t(cut - mObjects.begin()));
    mObjects.erase(cut, mObjects.end());
    mStorage.resize(size);
    mData = mStorage.data();
    mDataSize = size;
    mDataPos = std::min(mDataPos, size);
    return OK;
}

status_t Parcel::setDataCapacity(size_t size) {
    if (size > kMaxSize) return BAD_VALUE;
    if (mRelease != nullptr) return INVALID_OPERATION;
    mStorage.reserve(size);
    mData = mStorage.data();
    return OK;
}

status_t Parcel::setData(const uint8_t* buffer, size_t length) {
    freeData();
    return write(buffer, length);
}

void Parcel::adoptDriverBuffer(const uint8_t* data, size_t size, const uint64_t* objects,
                               size_t objectCount, ReleaseFunction release) {
    freeData();
    mData = data;
    mDataSize = size;
    mRelease = release;
    if (objectCount > 0) mObjects.assign(objects, objects + objectCount);
}

uint8_t* Parcel::grow(size_t length) {
    if (mError != OK) return nullptr;
    if (mRelease != nullptr) {
        ALOGE("Parcel: a received parcel cannot be written to");
        mError = INVALID_OPERATION;
        return nullptr;
    }
    if (length > kMaxSize || mDataPos > kMaxSize - padded(length)) {
        mError = BAD_VALUE;
        return nullptr;
    }
    const size_t end = mDataPos + padded(length);
    // Also for nothing: a place is an address.
    if (mStorage.capacity() == 0) mStorage.reserve(std::max(end, kFirstCapacity));
    if (end > mStorage.size()) {
        mStorage.resize(end);
        mData = mStorage.data();
        mDataSize = end;
    }
    uint8_t* place = mStorage.data() + mDataPos;
    std::memset(place + length, 0, padded(length) - length);
    mDataPos = end;
    return place;
}

template <typename T>
status_t Parcel::writePlain(T value) {
    static_assert(sizeof(T) % 4 == 0);
    uint8_t* place = grow(sizeof(T));
    if (place == nullptr) return mError;
    std::memcpy(place, &value, sizeof(T));
    return OK;
}

template <typename T>
status_t Parcel::readPlain(T* out) const {
    static_assert(sizeof(T) % 4 == 0);
    return read(out, sizeof(T));
}

void* Parcel::writeInplace(size_t length) {
    return grow(length);
}

status_t Parcel::write(const void* data, size_t length) {
    uint8_t* place = grow(length);
    if (place == nullptr) return mError;
    if (length > 0) std::memcpy(place, data, length);
    return OK;
}

status_t Parcel::writeUnpadded(const void* data, size_t length) {
    const size_t start = mDataPos;
    if (const status_t status = write(data, length); status != OK) return status;
    if (mDataPos == mDataSize) {
        mStorage.resize(start + length);
        mDataSize = mStorage.size();
    }
    mDataPos = start + length;
    return OK;
}

status_t Parcel::writeBool(bool value) {
    return writeInt32(value ? 1 : 0);
}
status_t Parcel::writeByte(int8_t value) {
    return writeInt32(value);
}
status_t Parcel::writeChar(char16_t value) {
    return writeInt32(int32_t(value));
}
status_t Parcel::writeInt32(int32_t value) {
    return writePlain(value);
}
status_t Parcel::writeUint32(uint32_t value) {
    return writePlain(value);
}
status_t Parcel::writeInt64(int64_t value) {
    return writePlain(value);
}
status_t Parcel::writeUint64(uint64_t value) {
    return writePlain(value);
}
status_t Parcel::writeFloat(float value) {
    return writePlain(value);
}
status_t Parcel::writeDouble(double value) {
    return writePlain(value);
}

status_t Parcel::writeNoException() {
    return writeInt32(0);
}

status_t Parcel::writeByteContents(const void* data, size_t length) {
    if (length > kMaxSize) return BAD_VALUE;
    if (const status_t status = writeInt32(int32_t(length)); status != OK) return status;
    return write(data, length);
}

status_t Parcel::writeByteArray(size_t length, const uint8_t* values) {
    return values == nullptr ? writeInt32(kAbsent) : writeByteContents(values, length);
}

status_t Parcel::writeInt32Array(size_t length, const int32_t* values) {
    if (values == nullptr) return writeInt32(kAbsent);
    if (length > kMaxSize / sizeof(int32_t)) return BAD_VALUE;
    if (const status_t status = writeInt32(int32_t(length)); status != OK) return status;
    return write(values, length * sizeof(int32_t));
}

bool Parcel::touchesObject(size_t start, size_t length) const {
    // The first object that ends behind the start: the ones before it cannot matter.
    const auto first = std::upper_bound(
            mObjects.begin(), mObjects.end(), start,
            [](size_t position, uint64_t offset) { return position < offset + kObjectSize; });
    return first != mObjects.end() && *first < start + length;
}

const void* Parcel::readInplace(size_t length) const {
    if (length > dataAvail()) return nullptr;
    if (!mObjects.empty() && touchesObject(mDataPos, length)) {
        ALOGE("Parcel: plain data read where an object stands");
        return nullptr;
    }
    const uint8_t* place = mData + mDataPos;
    mDataPos = std::min(mDataPos + padded(length), mDataSize);
    return place;
}

status_t Parcel::read(void* outData, size_t length) const {
    if (length > dataAvail()) return NOT_ENOUGH_DATA;
    const void* place = readInplace(length);
    if (place == nullptr) return PERMISSION_DENIED;
    if (length > 0) std::memcpy(outData, place, length);
    return OK;
}

status_t Parcel::readBool(bool* out) const {
    int32_t value = 0;
    const status_t status = readInt32(&value);
    if (status == OK) *out = value != 0;
    return status;
}
status_t Parcel::readByte(int8_t* out) const {
    int32_t value = 0;
    const status_t status = readInt32(&value);
    if (status == OK) *out = int8_t(value);
    return status;
}
status_t Parcel::readChar(char16_t* out) const {
    int32_t value = 0;
    const status_t status = readInt32(&value);
    if (status == OK) *out = char16_t(value);
    return status;
}
status_t Parcel::readInt32(int32_t* out) const {
    return readPlain(out);
}
status_t Parcel::readUint32(uint32_t* out) const {
    return readPlain(out);
}
status_t Parcel::readInt64(int64_t* out) const {
    return readPlain(out);
}
status_t Parcel::readUint64(uint64_t* out) const {
    return readPlain(out);
}
status_t Parcel::readFloat(float* out) const {
    return readPlain(out);
}
status_t Parcel::readDouble(double* out) const {
    return readPlain(out);
}

namespace {

/** The form that returns the value: whatever went wrong, a zero. */
template <typename T>
T valueOr0(const Parcel& parcel, status_t (Parcel::*read)(T*) const) {
    T value{};
    if ((parcel.*read)(&value) != OK) return T{};
    return value;
}

}  // namespace

bool Parcel::readBool() const {
    return valueOr0<bool>(*this, &Parcel::readBool);
}
int8_t Parcel::readByte() const {
    return valueOr0<int8_t>(*this, &Parcel::readByte);
}
char16_t Parcel::readChar() const {
    return valueOr0<char16_t>(*this, &Parcel::readChar);
}
int32_t Parcel::readInt32() const {
    return valueOr0<int32_t>(*this, &Parcel::readInt32);
}
uint32_t Parcel::readUint32() const {
    return valueOr0<uint32_t>(*this, &Parcel::readUint32);
}
int64_t Parcel::readInt64() const {
    return valueOr0<int64_t>(*this, &Parcel::readInt64);
}
uint64_t Parcel::readUint64() const {
    return valueOr0<uint64_t>(*this, &Parcel::readUint64);
}
float Parcel::readFloat() const {
    return valueOr0<float>(*this, &Parcel::readFloat);
}
double Parcel::readDouble() const {
    return valueOr0<double>(*this, &Parcel::readDouble);
}

status_t Parcel::readCount(size_t minElementSize, int32_t* outCount) const {
    int32_t count = 0;
    if (const status_t status = readInt32(&count); status != OK) return status;
    if (count == kAbsent) return UNEXPECTED_NULL;
    if (count < 0 || size_t(count) > dataAvail() / minElementSize) return BAD_VALUE;
    *outCount = count;
    return OK;
}

status_t Parcel::writeParcelable(const Parcelable& parcelable) {
    if (const status_t status = writeInt32(1); status != OK) return status;
    return parcelable.writeToParcel(this);
}

status_t Parcel::readParcelable(Parcelable* out) const {
    int32_t present = 0;
    if (const status_t status = readInt32(&present); status != OK) return status;
    return present == 0 ? UNEXPECTED_NULL : out->readFromParcel(this);
}

status_t Parcel::writeInterfaceToken(const String16& interface) {
    const IPCThreadState* thread = IPCThreadState::self();
    writeInt32(thread->getStrictModePolicy() | kPenaltyGather);
    writeInt32(thread->shouldPropagateWorkSource() ? int32_t(thread->getCallingWorkSourceUid())
                                                   : IPCThreadState::kUnsetWorkSource);
    writeInt32(kTokenHeader);
    return writeString16(interface);
}

bool Parcel::enforceInterface(const String16& interface, IPCThreadState* threadState) const {
    int32_t policy = 0;
    int32_t workSource = 0;
    int32_t header = 0;
    if (readInt32(&policy) != OK || readInt32(&workSource) != OK || readInt32(&header) != OK) {
        return false;
    }
    size_t length = 0;
    const char16_t* descriptor = readString16Inplace(&length);
    const bool matches = header == kTokenHeader && descriptor != nullptr &&
                         length == interface.size() &&
                         std::equal(descriptor, descriptor + length, interface.string());
    if (!matches) {
        ALOGW("Parcel: the request is not for %s", String8(interface).string());
        return false;
    }
    IPCThreadState* thread = threadState != nullptr ? threadState : IPCThreadState::self();
    thread->setStrictModePolicy(policy);
    thread->setCallingWorkSourceUidWithoutPropagation(uid_t(workSource));
    return true;
}

bool Parcel::checkInterface(IBinder* binder) const {
    return enforceInterface(binder->getInterfaceDescriptor());
}

}  // namespace android
