// SPDX-License-Identifier: Apache-2.0
//
// Parcel: the contents of a call or of its reply.
//
// A run of values, each padded to 4 bytes, and a list of the offsets at which objects (binders,
// descriptors) stand, which the driver translates between processes.
//
// What is read may come from anyone: every read checks what is left, a count is checked against
// what is left before memory is taken for it, and an object is only read where the driver has seen
// one. A failed read leaves its out-value as it was.
// A parcel belongs to one thread at a time.
#pragma once

#include <android-base/unique_fd.h>
#include <binder/IInterface.h>
#include <binder/Parcelable.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

struct flat_binder_object;

namespace android {

class IBinder;
class IPCThreadState;

class Parcel {
public:
    Parcel();
    ~Parcel();
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    const uint8_t* data() const { return mData; }
    size_t dataSize() const { return mDataSize; }
    size_t dataAvail() const { return mDataPos < mDataSize ? mDataSize - mDataPos : 0; }
    size_t dataPosition() const { return mDataPos; }
    size_t dataCapacity() const;
    void setDataPosition(size_t position) const;

    /** Cuts, dropping the objects behind the end, or grows with zeros. */
    status_t setDataSize(size_t size);
    status_t setDataCapacity(size_t size);
    /** Replaces the contents with a copy of plain bytes. */
    status_t setData(const uint8_t* buffer, size_t length);
    /** Appends a part of another parcel at the end; objects wholly inside it come along. */
    status_t appendFrom(const Parcel* other, size_t start, size_t length);
    /** Empty again, all that it held released. */
    void freeData();

    /** The first error of a write; writing nothing more, the parcel cannot be sent. */
    status_t errorCheck() const { return mError; }
    void setError(status_t error) { mError = error; }

    size_t objectsCount() const { return mObjects.size(); }
    bool hasFileDescriptors() const;
    bool allowFds() const { return mAllowFds; }
    bool pushAllowFds(bool allowFds);
    void restoreAllowFds(bool lastValue) { mAllowFds = lastValue; }

    /** What every request begins with: strict-mode policy, work source, "SYST", the descriptor. */
    status_t writeInterfaceToken(const String16& interface);
    /**
     * Reads it back and compares. A matching token sets the thread's policy and work source
     * (threadState, or that of the calling thread).
     */
    bool enforceInterface(const String16& interface, IPCThreadState* threadState = nullptr) const;
    bool checkInterface(IBinder* binder) const;

    status_t write(const void* data, size_t length);
    /** length bytes to be filled in by the caller before the next operation; null on failure. */
    void* writeInplace(size_t length);
    status_t writeUnpadded(const void* data, size_t length);
    status_t writeBool(bool value);
    status_t writeByte(int8_t value);
    status_t writeChar(char16_t value);
    status_t writeInt32(int32_t value);
    status_t writeUint32(uint32_t value);
    status_t writeInt64(int64_t value);
    status_t writeUint64(uint64_t value);
    status_t writeFloat(float value);
    status_t writeDouble(double value);
    status_t writeCString(const char* text);
    status_t writeString8(const String8& text);
    /** Length in units, the units, a zero. Absent is length -1, which differs from empty. */
    status_t writeString16(const String16& text);
    status_t writeString16(const std::unique_ptr<String16>& text);
    status_t writeString16(const std::optional<String16>& text);
    status_t writeString16(const char16_t* text, size_t length);
    /** BAD_VALUE when it is not valid UTF-8. */
    status_t writeUtf8AsUtf16(const std::string& text);
    status_t writeUtf8AsUtf16(const std::unique_ptr<std::string>& text);
    status_t writeUtf8AsUtf16(const std::optional<std::string>& text);
    status_t writeStrongBinder(const sp<IBinder>& binder);
    /** The descriptor must live as long as the parcel, or belong to it (takeOwnership). */
    status_t writeFileDescriptor(int fd, bool takeOwnership = false);
    status_t writeDupFileDescriptor(int fd);
    status_t writeUniqueFileDescriptor(const base::unique_fd& fd);
    status_t writeInt32Array(size_t length, const int32_t* values);
    status_t writeByteArray(size_t length, const uint8_t* values);
    status_t writeNoException();

    status_t writeParcelable(const Parcelable& parcelable);
    template <typename T>
    status_t writeNullableParcelable(const std::unique_ptr<T>& parcelable);
    template <typename T>
    status_t writeNullableParcelable(const std::optional<T>& parcelable);

    // Vectors: T is the std::vector, or a std::unique_ptr or std::optional of it (absent is -1).
    template <typename T = std::vector<uint8_t>>
    status_t writeByteVector(const T& values);
    template <typename T = std::vector<int32_t>>
    status_t writeInt32Vector(const T& values);
    template <typename T = std::vector<int64_t>>
    status_t writeInt64Vector(const T& values);
    template <typename T = std::vector<bool>>
    status_t writeBoolVector(const T& values);
    template <typename T = std::vector<String16>>
    status_t writeString16Vector(const T& values);
    template <typename T = std::vector<std::string>>
    status_t writeUtf8VectorAsUtf16Vector(const T& values);
    template <typename T = std::vector<sp<IBinder>>>
    status_t writeStrongBinderVector(const T& values);
    template <typename T>
    status_t writeParcelableVector(const T& values);

    status_t read(void* outData, size_t length) const;
    /** Points into the parcel; null when not that much is left. */
    const void* readInplace(size_t length) const;
    // The forms that return the value return 0 (or an empty one) on failure.
    bool readBool() const;
    status_t readBool(bool* out) const;
    int8_t readByte() const;
    status_t readByte(int8_t* out) const;
    char16_t readChar() const;
    status_t readChar(char16_t* out) const;
    int32_t readInt32() const;
    status_t readInt32(int32_t* out) const;
    uint32_t readUint32() const;
    status_t readUint32(uint32_t* out) const;
    int64_t readInt64() const;
    status_t readInt64(int64_t* out) const;
    uint64_t readUint64() const;
    status_t readUint64(uint64_t* out) const;
    float readFloat() const;
    status_t readFloat(float* out) const;
    double readDouble() const;
    status_t readDouble(double* out) const;
    const char* readCString() const;
    String8 readString8() const;
    status_t readString8(String8* out) const;
    String16 readString16() const;
    /** UNEXPECTED_NULL when it is absent; the next two take that as a value. */
    status_t readString16(String16* out) const;
    status_t readString16(std::unique_ptr<String16>* out) const;
    status_t readString16(std::optional<String16>* out) const;
    const char16_t* readString16Inplace(size_t* outLength) const;
    status_t readUtf8FromUtf16(std::string* out) const;
    status_t readUtf8FromUtf16(std::unique_ptr<std::string>* out) const;
    status_t readUtf8FromUtf16(std::optional<std::string>* out) const;

    /** BAD_TYPE when no binder stands here, UNEXPECTED_NULL when it is a null one. */
    status_t readStrongBinder(sp<IBinder>* out) const;
    sp<IBinder> readStrongBinder() const;
    status_t readNullableStrongBinder(sp<IBinder>* out) const;
    template <typename T>
    status_t readStrongBinder(sp<T>* out) const;
    template <typename T>
    status_t readNullableStrongBinder(sp<T>* out) const;

    /** Remains the parcel's: duplicate it to keep it. BAD_TYPE (negative) when none stands here. */
    int readFileDescriptor() const;
    /** A duplicate of one's own, close-on-exec. */
    status_t readUniqueFileDescriptor(base::unique_fd* out) const;

    status_t readParcelable(Parcelable* out) const;
    template <typename T>
    status_t readParcelable(std::unique_ptr<T>* out) const;
    template <typename T>
    status_t readParcelable(std::optional<T>* out) const;

    template <typename T>
    status_t readByteVector(T* out) const;
    template <typename T>
    status_t readInt32Vector(T* out) const;
    template <typename T>
    status_t readInt64Vector(T* out) const;
    template <typename T>
    status_t readBoolVector(T* out) const;
    template <typename T>
    status_t readString16Vector(T* out) const;
    template <typename T>
    status_t readUtf8VectorFromUtf16Vector(T* out) const;
    template <typename T>
    status_t readStrongBinderVector(T* out) const;
    template <typename T>
    status_t readParcelableVector(T* out) const;

    /** The exception at the head of a reply; its message is skipped. */
    int32_t readExceptionCode() const;

    /** Bytes of an object on the wire, without the stability word of a binder. */
    static constexpr size_t kObjectSize = 24;

private:
    friend class IPCThreadState;

    /** Buffers above this, or with objects, go back to the driver without delay. */
    static constexpr size_t kPromptReleaseSize = 4096;

    /** Hands a driver's buffer back. prompt: it is big or holds objects, so do not tarry. */
    using ReleaseFunction = void (*)(const uint8_t* data, bool prompt);
    void adoptDriverBuffer(const uint8_t* data, size_t size, const uint64_t* objects,
                           size_t objectCount, ReleaseFunction release);
    const std::vector<uint64_t>& objects() const { return mObjects; }

    /** Room for length more bytes (padded) at the position; null, with mError set, on failure. */
    uint8_t* grow(size_t length);
    status_t writeObject(const flat_binder_object& object);
    bool readObject(flat_binder_object* out) const;
    bool touchesObject(size_t start, size_t length) const;
    status_t appendObjects(const Parcel& other, size_t start, size_t length, size_t target);
    void closeFileDescriptors(size_t firstObject);
    template <typename T>
    status_t writePlain(T value);
    template <typename T>
    status_t readPlain(T* out) const;

    /** UNEXPECTED_NULL when the text is absent. */
    status_t readUnits(const char16_t** outUnits, size_t* outLength) const;
    /** A std::unique_ptr or std::optional of what `read` reads; a leading -1 says "absent". */
    template <typename T, typename Read>
    status_t readNullable(T* out, Read read) const;
    status_t writeByteContents(const void* data, size_t length);
    /** BAD_VALUE when fewer bytes are left than count elements of that size take at least. */
    status_t readCount(size_t minElementSize, int32_t* outCount) const;
    template <typename T, typename Write>
    status_t writeVectorWith(const T& values, Write write);
    template <typename T, typename Read>
    status_t readVectorWith(T* out, size_t minElementSize, Read read) const;

    const uint8_t* mData = nullptr;
    size_t mDataSize = 0;
    mutable size_t mDataPos = 0;
    status_t mError = OK;
    bool mAllowFds = true;
    /** Set while the data is a driver's buffer, which is never written to. */
    ReleaseFunction mRelease = nullptr;
    std::vector<uint8_t> mStorage;
    /** Offsets of the objects, ascending. */
    std::vector<uint64_t> mObjects;
    /** Keeps the binders written here alive until the driver has its own references. */
    std::vector<sp<IBinder>> mHeldBinders;
};

}  // namespace android

#include <binder/ParcelTemplates.h>  // IWYU pragma: export
