// SPDX-License-Identifier: Apache-2.0
//
// Call arguments. One row of a table per type: how it is checked and how it is written.
#include "CallArguments.h"

#include <android-base/parsedouble.h>
#include <android-base/parseint.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include <algorithm>
#include <iterator>

#include "common/StatusText.h"

namespace tools {

using android::Parcel;
using android::status_t;
using android::String16;
using android::base::ParseDouble;
using android::base::ParseFloat;
using android::base::ParseInt;
using android::base::ParseUint;

namespace {

/** Writes a value, or only checks it when there is no parcel. BAD_VALUE for no such value. */
using Handler = status_t (*)(const std::string& text, Parcel* parcel);

template <typename T>
status_t handleInt(const std::string& text, Parcel* parcel, status_t (Parcel::*write)(T)) {
    T value = 0;
    if (!ParseInt(text, &value)) return android::BAD_VALUE;
    return parcel == nullptr ? android::OK : (parcel->*write)(value);
}

status_t handleI32(const std::string& text, Parcel* parcel) {
    return handleInt<int32_t>(text, parcel, &Parcel::writeInt32);
}

status_t handleI64(const std::string& text, Parcel* parcel) {
    return handleInt<int64_t>(text, parcel, &Parcel::writeInt64);
}

status_t handleFloat(const std::string& text, Parcel* parcel) {
    float value = 0;
    if (!ParseFloat(text, &value)) return android::BAD_VALUE;
    return parcel == nullptr ? android::OK : parcel->writeFloat(value);
}

status_t handleDouble(const std::string& text, Parcel* parcel) {
    double value = 0;
    if (!ParseDouble(text, &value)) return android::BAD_VALUE;
    return parcel == nullptr ? android::OK : parcel->writeDouble(value);
}

status_t handleString16(const std::string& text, Parcel* parcel) {
    const String16 value(text.data(), text.size());
    // What is not UTF-8 becomes empty.
    if (value.size() == 0 && !text.empty()) return android::BAD_VALUE;
    return parcel == nullptr ? android::OK : parcel->writeString16(value);
}

status_t handleNull(const std::string& /*text*/, Parcel* parcel) {
    return parcel == nullptr ? android::OK : parcel->writeStrongBinder(nullptr);
}

/** For writing too where that is allowed: services write their dumps to such files. */
status_t handleFile(const std::string& text, Parcel* parcel) {
    if (parcel == nullptr) return android::OK;
    int fd = open(text.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) fd = open(text.c_str(), O_RDONLY | O_CLOEXEC);
    return fd < 0 ? -errno : parcel->writeFileDescriptor(fd, /*takeOwnership=*/true);
}

struct Type {
    const char* name;
    /** What its word has to be; null when it has none. */
    const char* wants;
    Handler handle;
};

constexpr Type kTypes[] = {
        {"i32", "a 32-bit integer", handleI32},   {"i64", "a 64-bit integer", handleI64},
        {"f", "a number", handleFloat},           {"d", "a number", handleDouble},
        {"s16", "UTF-8 text", handleString16},    {"null", nullptr, handleNull},
        {"fd", "the path of a file", handleFile},
};

const Type* findType(const std::string& name) {
    const auto type = std::find_if(std::begin(kTypes), std::end(kTypes),
                                   [&](const Type& candidate) { return name == candidate.name; });
    return type == std::end(kTypes) ? nullptr : &*type;
}

}  // namespace

std::optional<CallArguments> parseCallArguments(const std::vector<std::string>& words,
                                                std::string* error) {
    CallArguments arguments;
    if (words.empty()) {
        *error = "call wants a code";
        return std::nullopt;
    }
    if (!ParseUint(words[0], &arguments.code)) {
        *error = "'" + words[0] + "' is no code of a call";
        return std::nullopt;
    }
    for (size_t next = 1; next < words.size();) {
        CallArguments::Value value{.type = words[next++], .text = {}};
        const Type* type = findType(value.type);
        if (type == nullptr) {
            *error = "unknown type '" + value.type + "'";
            return std::nullopt;
        }
        if (type->wants != nullptr) {
            if (next == words.size()) {
                *error = value.type + " wants " + type->wants;
                return std::nullopt;
            }
            value.text = words[next++];
            if (type->handle(value.text, /*parcel=*/nullptr) != android::OK) {
                *error = value.type + " wants " + type->wants + ", not '" + value.text + "'";
                return std::nullopt;
            }
        }
        arguments.values.push_back(std::move(value));
    }
    return arguments;
}

bool writeCallArguments(const CallArguments& arguments, Parcel* parcel, std::string* error) {
    for (const CallArguments::Value& value : arguments.values) {
        const status_t status = findType(value.type)->handle(value.text, parcel);
        if (status == android::OK) continue;
        *error = value.type + " " + value.text + ": " + statusText(status);
        return false;
    }
    return true;
}

}  // namespace tools
