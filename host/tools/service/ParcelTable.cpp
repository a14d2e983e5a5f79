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

/** `width`: of each column at least, the missing ones included. */
std::string words(const uint8_t* data, size_t size, size_t width) {
    std::string line;
    for (size_t start = 0; start < kLineSize; start += kWordSize) {
        std::string column;
        if (start < size) column = word(data + start, std::min(kWordSize, size - start));
        column.resize(std::max(width, column.size()), ' ');
        line += column + ' ';
    }
    return line;
}

}  // namespace

std::string parcelTable(const uint8_t* data, size_t size) {
    if (size == 0) return "Parcel(NULL)";
    if (size <= kLineSize) {
        return "Parcel(" + words(data, size, /*width=*/0) + "'" + text(data, size) + "')";
    }
    std::string table = "Parcel(";
    for (size_t start = 0; start < size; start += kLineSize) {
        const size_t length = std::min(kLineSize, size - start);
        const uint8_t* line = data + start;
        table += StringPrintf("\n  0x%08zx: ", start) +
                 words(line, length, kWordSize * kDigitsPerByte) + "'" + text(line, length) +
                 std::string(kLineSize - length, ' ') + "'";
    }
    return table + ")";
}

}  // namespace tools
