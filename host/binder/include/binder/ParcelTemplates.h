// SPDX-License-Identifier: Apache-2.0
//
// Template bodies of Parcel: vectors, parcelables and typed binders. Included by Parcel.h.
#pragma once

#include <binder/Parcel.h>

#include <cstring>
#include <limits>
#include <utility>

namespace android {
namespace parcel_detail {

/** Whether a type says "absent" as well: std::unique_ptr or std::optional. */
template <typename T>
struct Nullable {
    static constexpr bool kValue = false;
};
template <typename T>
struct Nullable<std::unique_ptr<T>> {
    static constexpr bool kValue = true;
    static std::unique_ptr<T> wrap(T&& value) { return std::make_unique<T>(std::move(value)); }
    using Element = T;
};
template <typename T>
struct Nullable<std::optional<T>> {
    static constexpr bool kValue = true;
    static std::optional<T> wrap(T&& value) { return std::optional<T>(std::move(value)); }
    using Element = T;
};

// Least bytes of an element on the wire: a length with or without text, a binder with its
// stability word, the presence word of a parcelable.
inline constexpr size_t kMinString = 4;
inline constexpr size_t kMinBinder = 28;
inline constexpr size_t kMinParcelable = 4;

}  // namespace parcel_detail

template <typename T, typename Write>
status_t Parcel::writeVectorWith(const T& values, Write write) {
    if constexpr (parcel_detail::Nullable<T>::kValue) {
        return values ? writeVectorWith(*values, write) : writeInt32(-1);
    } else {
        if (values.size() > size_t(std::numeric_limits<int32_t>::max())) return BAD_VALUE;
        if (const status_t status = writeInt32(int32_t(values.size())); status != OK) return status;
        for (const auto& value : values) {
            if (const status_t status = write(value); status != OK) return status;
        }
        return OK;
    }
}

template <typename T, typename Read>
status_t Parcel::readNullable(T* out, Read read) const {
    const size_t start = dataPosition();
    int32_t length = 0;
    if (const status_t status = readInt32(&length); status != OK) return status;
    if (length == -1) {
        out->reset();
        return OK;
    }
    setDataPosition(start);
    typename parcel_detail::Nullable<T>::Element value;
    const status_t status = read(&value);
    if (status == OK) *out = parcel_detail::Nullable<T>::wrap(std::move(value));
    return status;
}

template <typename T, typename Read>
status_t Parcel::readVectorWith(T* out, size_t minElementSize, Read read) const {
    if constexpr (parcel_detail::Nullable<T>::kValue) {
        return readNullable(out, [&](auto* values) {
            return this->readVectorWith(values, minElementSize, read);
        });
    } else {
        int32_t count = 0;
        if (const status_t status = readCount(minElementSize, &count); status != OK) return status;
        T values;
        values.reserve(size_t(count));
        for (int32_t i = 0; i < count; i++) {
            typename T::value_type value{};
            if (const status_t status = read(&value); status != OK) return status;
            values.push_back(std::move(value));
        }
        *out = std::move(values);
        return OK;
    }
}

template <typename T>
status_t Parcel::writeByteVector(const T& values) {
    if constexpr (parcel_detail::Nullable<T>::kValue) {
        return values ? writeByteVector(*values) : writeInt32(-1);
    } else {
        static_assert(sizeof(typename T::value_type) == 1);
        return writeByteContents(values.data(), values.size());
    }
}

template <typename T>
status_t Parcel::readByteVector(T* out) const {
    if constexpr (parcel_detail::Nullable<T>::kValue) {
        return readNullable(out, [this](auto* values) { return this->readByteVector(values); });
    } else {
        static_assert(sizeof(typename T::value_type) == 1);
        int32_t count = 0;
        if (const status_t status = readCount(/*minElementSize=*/1, &count); status != OK) {
            return status;
        }
        const void* bytes = readInplace(size_t(count));
        if (bytes == nullptr) return NOT_ENOUGH_DATA;
        T values(static_cast<size_t>(count));
        if (count > 0) std::memcpy(values.data(), bytes, size_t(count));
        *out = std::move(values);
        return OK;
    }
}

template <typename T>
status_t Parcel::writeInt32Vector(const T& values) {
    return writeVectorWith(values, [this](int32_t value) { return this->writeInt32(value); });
}
template <typename T>
status_t Parcel::readInt32Vector(T* out) const {
    return readVectorWith(out, sizeof(int32_t),
                          [this](int32_t* value) { return this->readInt32(value); });
}
template <typename T>
status_t Parcel::writeInt64Vector(const T& values) {
    return writeVectorWith(values, [this](int64_t value) { return this->writeInt64(value); });
}
template <typename T>
status_t Parcel::readInt64Vector(T* out) const {
    return readVectorWith(out, sizeof(int64_t),
                          [this](int64_t* value) { return this->readInt64(value); });
}
template <typename T>
status_t Parcel::writeBoolVector(const T& values) {
    return writeVectorWith(values, [this](bool value) { return this->writeBool(value); });
}
template <typename T>
status_t Parcel::readBoolVector(T* out) const {
    return readVectorWith(out, sizeof(int32_t),
                          [this](bool* value) { return this->readBool(value); });
}
template <typename T>
status_t Parcel::writeString16Vector(const T& values) {
    return writeVectorWith(values,
                           [this](const auto& value) { return this->writeString16(value); });
}
template <typename T>
status_t Parcel::readString16Vector(T* out) const {
    return readVectorWith(out, parcel_detail::kMinString,
                          [this](auto* value) { return this->readString16(value); });
}
template <typename T>
status_t Parcel::writeUtf8VectorAsUtf16Vector(const T& values) {
    return writeVectorWith(values,
                           [this](const auto& value) { return this->writeUtf8AsUtf16(value); });
}
template <typename T>
status_t Parcel::readUtf8VectorFromUtf16Vector(T* out) const {
    return readVectorWith(out, parcel_detail::kMinString,
                          [this](auto* value) { return this->readUtf8FromUtf16(value); });
}
template <typename T>
status_t Parcel::writeStrongBinderVector(const T& values) {
    return writeVectorWith(values,
                           [this](const auto& value) { return this->writeStrongBinder(value); });
}
template <typename T>
status_t Parcel::readStrongBinderVector(T* out) const {
    return readVectorWith(out, parcel_detail::kMinBinder,
                          [this](auto* value) { return this->readNullableStrongBinder(value); });
}

template <typename T>
status_t Parcel::writeParcelableVector(const T& values) {
    return writeVectorWith(values, [this](const auto& value) {
        using Value = std::remove_cvref_t<decltype(value)>;
        if constexpr (parcel_detail::Nullable<Value>::kValue) {
            return this->writeNullableParcelable(value);
        } else {
            return this->writeParcelable(value);
        }
    });
}
template <typename T>
status_t Parcel::readParcelableVector(T* out) const {
    return readVectorWith(out, parcel_detail::kMinParcelable,
                          [this](auto* value) { return this->readParcelable(value); });
}

template <typename T>
status_t Parcel::writeNullableParcelable(const std::unique_ptr<T>& parcelable) {
    return parcelable ? writeParcelable(*parcelable) : writeInt32(0);
}
template <typename T>
status_t Parcel::writeNullableParcelable(const std::optional<T>& parcelable) {
    return parcelable ? writeParcelable(*parcelable) : writeInt32(0);
}

template <typename T>
status_t Parcel::readParcelable(std::unique_ptr<T>* out) const {
    std::optional<T> value;
    const status_t status = readParcelable(&value);
    if (status != OK) return status;
    *out = value ? std::make_unique<T>(std::move(*value)) : nullptr;
    return OK;
}
template <typename T>
status_t Parcel::readParcelable(std::optional<T>* out) const {
    int32_t present = 0;
    if (const status_t status = readInt32(&present); status != OK) return status;
    if (present == 0) {
        out->reset();
        return OK;
    }
    T value;
    if (const status_t status = value.readFromParcel(this); status != OK) return status;
    *out = std::move(value);
    return OK;
}

template <typename T>
status_t Parcel::readStrongBinder(sp<T>* out) const {
    sp<IBinder> binder;
    if (const status_t status = readStrongBinder(&binder); status != OK) return status;
    *out = interface_cast<T>(binder);
    return *out == nullptr ? UNKNOWN_ERROR : OK;
}
template <typename T>
status_t Parcel::readNullableStrongBinder(sp<T>* out) const {
    sp<IBinder> binder;
    if (const status_t status = readNullableStrongBinder(&binder); status != OK) return status;
    *out = interface_cast<T>(binder);
    return binder != nullptr && *out == nullptr ? UNKNOWN_ERROR : OK;
}

}  // namespace android
