// SPDX-License-Identifier: Apache-2.0
//
// Parcel: text. On the wire a text is its length in units, the units and a zero; absent is -1.
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <utils/Unicode.h>

#include <cstring>
#include <limits>

namespace android {
namespace {

constexpr int32_t kAbsent = -1;
constexpr size_t kMaxUnits = size_t(std::numeric_limits<int32_t>::max()) / sizeof(char16_t) - 4;

}  // namespace

status_t Parcel::writeCString(const char* text) {
    return write(text, std::strlen(text) + 1);
}

const char* Parcel::readCString() const {
    const size_t available = dataAvail();
    if (available == 0) return nullptr;
    const auto* text = reinterpret_cast<const char*>(mData + mDataPos);
    const size_t length = strnlen(text, available);
    if (length == available) return nullptr;
    return static_cast<const char*>(readInplace(length + 1));
}

status_t Parcel::writeString8(const String8& text) {
    if (const status_t status = writeInt32(int32_t(text.bytes())); status != OK) return status;
    return text.bytes() == 0 ? OK : write(text.string(), text.bytes() + 1);
}

status_t Parcel::readString8(String8* out) const {
    int32_t length = 0;
    if (const status_t status = readInt32(&length); status != OK) return status;
    if (length < 0) return UNEXPECTED_NULL;
    if (length == 0) {
        *out = String8();
        return OK;
    }
    const void* text = readInplace(size_t(length) + 1);
    if (text == nullptr) return BAD_VALUE;
    return out->setTo(static_cast<const char*>(text), size_t(length));
}

String8 Parcel::readString8() const {
    String8 text;
    return readString8(&text) == OK ? text : String8();
}

status_t Parcel::writeString16(const char16_t* text, size_t length) {
    if (text == nullptr) return writeInt32(kAbsent);
    if (length > kMaxUnits) return BAD_VALUE;
    if (const status_t status = writeInt32(int32_t(length)); status != OK) return status;
    auto* place = static_cast<uint8_t*>(writeInplace((length + 1) * sizeof(char16_t)));
    if (place == nullptr) return errorCheck();
    std::memcpy(place, text, length * sizeof(char16_t));
    std::memset(place + length * sizeof(char16_t), 0, sizeof(char16_t));
    return OK;
}

status_t Parcel::writeString16(const String16& text) {
    return writeString16(text.string(), text.size());
}
status_t Parcel::writeString16(const std::unique_ptr<String16>& text) {
    return text ? writeString16(*text) : writeInt32(kAbsent);
}
status_t Parcel::writeString16(const std::optional<String16>& text) {
    return text ? writeString16(*text) : writeInt32(kAbsent);
}

const char16_t* Parcel::readString16Inplace(size_t* outLength) const {
    *outLength = 0;
    int32_t length = 0;
    if (readInt32(&length) != OK || length < 0) return nullptr;
    if (mDataPos % alignof(char16_t) != 0) return nullptr;
    const void* text = readInplace((size_t(length) + 1) * sizeof(char16_t));
    if (text == nullptr) return nullptr;
    *outLength = size_t(length);
    return static_cast<const char16_t*>(text);
}

status_t Parcel::readUnits(const char16_t** outUnits, size_t* outLength) const {
    const size_t start = dataPosition();
    int32_t length = 0;
    if (const status_t status = readInt32(&length); status != OK) return status;
    if (length == kAbsent) return UNEXPECTED_NULL;
    setDataPosition(start);
    *outUnits = readString16Inplace(outLength);
    return *outUnits == nullptr ? BAD_VALUE : OK;
}

status_t Parcel::readString16(String16* out) const {
    const char16_t* units = nullptr;
    size_t length = 0;
    if (const status_t status = readUnits(&units, &length); status != OK) return status;
    *out = String16(units, length);
    return OK;
}

status_t Parcel::readString16(std::optional<String16>* out) const {
    return readNullable(out, [this](String16* text) { return readString16(text); });
}

status_t Parcel::readString16(std::unique_ptr<String16>* out) const {
    return readNullable(out, [this](String16* text) { return readString16(text); });
}

String16 Parcel::readString16() const {
    String16 text;
    return readString16(&text) == OK ? text : String16();
}

status_t Parcel::writeUtf8AsUtf16(const std::string& text) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    if (text.size() > kMaxUnits) return BAD_VALUE;
    const ssize_t units = text.empty() ? 0 : utf8_to_utf16_length(bytes, text.size());
    if (units < 0) return BAD_VALUE;
    if (const status_t status = writeInt32(int32_t(units)); status != OK) return status;
    const size_t room = size_t(units) + 1;
    auto* place = static_cast<char16_t*>(writeInplace(room * sizeof(char16_t)));
    if (place == nullptr) return errorCheck();
    if (units > 0) utf8_to_utf16(bytes, text.size(), place, room);
    place[units] = 0;
    return OK;
}
status_t Parcel::writeUtf8AsUtf16(const std::unique_ptr<std::string>& text) {
    return text ? writeUtf8AsUtf16(*text) : writeInt32(kAbsent);
}
status_t Parcel::writeUtf8AsUtf16(const std::optional<std::string>& text) {
    return text ? writeUtf8AsUtf16(*text) : writeInt32(kAbsent);
}

status_t Parcel::readUtf8FromUtf16(std::string* out) const {
    const char16_t* units = nullptr;
    size_t length = 0;
    if (const status_t status = readUnits(&units, &length); status != OK) return status;
    const ssize_t bytes = length == 0 ? 0 : utf16_to_utf8_length(units, length);
    if (bytes < 0) return BAD_VALUE;
    // The converter ends its output with a zero, which needs room as well.
    std::string converted(size_t(bytes) + 1, '\0');
    if (length > 0) utf16_to_utf8(units, length, converted.data(), converted.size());
    converted.resize(size_t(bytes));
    *out = std::move(converted);
    return OK;
}

status_t Parcel::readUtf8FromUtf16(std::optional<std::string>* out) const {
    return readNullable(out, [this](std::string* text) { return readUtf8FromUtf16(text); });
}

status_t Parcel::readUtf8FromUtf16(std::unique_ptr<std::string>* out) const {
    return readNullable(out, [this](std::string* text) { return readUtf8FromUtf16(text); });
}

int32_t Parcel::readExceptionCode() const {
    binder::Status status;
    if (status.readFromParcel(*this) != OK) return binder::Status::EX_TRANSACTION_FAILED;
    return status.exceptionCode();
}

}  // namespace android
