// SPDX-License-Identifier: Apache-2.0
//
// Parcel table.
#include "ParcelTable.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <cstring>

namespace tools {

using android::base::StringPrintf;

namespace {

constexpr size_t kWordSize = sizeof(uint32_t);
constexpr size_t kWordsPerLine = 4;
constexpr size_t kLineSize = kWordSize * kWordsPerLine;
constexpr size_t kDigitsPerByte = 2;

/** The whole of a word, or as many digits as there are bytes of it. */
std::string word(const uint8_t* data, size_t size) {
    uint32_t value = 0;
    memcpy(&value, data, size);
    return StringPrintf("%0*x", int(size * kDigitsPerByte), value);
}

std::string text(const uint8_t* data, size_t size) {
    std::string text;
    // Not isprint(): what the table looks like must not depend on the locale.
    for (size_t i = 0; i < size; i++)
        text += data[i] >= ' ' && data[i] <= '~' ? static_cast<char>(data[i]) : '.';
    return text;
}

std::string words(const uint8_t* data, size_t size, const std::string& gap) {
    std::string line;
    for (size_t start = 0; start < kLineSize; start += kWordSize) {
        line += start < size ? word(data + start, std::min(kWordSize, size - start)) : gap;
        line += ' ';
    }
    return line;
}

}  // namespace

std::string parcelTable(const uint8_t* data, size_t size) {
    if (size == 0) return "Parcel(NULL)";
    if (size <= kLineSize) {
        return "Parcel(" + words(data, size, /*gap=*/"") + "'" + text(data, size) + "')";
    }
    const std::string gap(kWordSize * kDigitsPerByte, ' ');
    std::string table = "Parcel(";
    for (size_t start = 0; start < size; start += kLineSize) {
        const size_t length = std::min(kLineSize, size - start);
        const uint8_t* line = data + start;
        table += StringPrintf("\n  0x%08zx: ", start) + words(line, length, gap) + "'" +
                 text(line, length) + std::string(kLineSize - length, ' ') + "'";
    }
    return table + ")";
}

}  // namespace tools
