// SPDX-License-Identifier: Apache-2.0
#include "WireBytes.h"

#include <android-base/file.h>
#include <stdio.h>
#include <stdlib.h>

namespace com::velmar::os::statsdstructuredlogger {

std::string bytesOf(std::string_view hex) {
    std::string digits;
    for (const char c : hex) {
        if (c != ' ') digits += c;
    }
    if (digits.size() % 2 != 0) abort();
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, /*base=*/16));
    return bytes;
}

std::string hexOf(std::string_view bytes) {
    std::string hex;
    for (const char c : bytes) {
        char digits[3];
        snprintf(digits, sizeof(digits), "%02x", static_cast<unsigned char>(c));
        hex += digits;
    }
    return hex;
}

std::string decodeRaw(const std::string& bytes) {
    const TemporaryFile file;
    if (!android::base::WriteStringToFile(bytes, file.path)) abort();
    FILE* const pipe = popen((std::string(PROTOC " --decode_raw <") + file.path).c_str(), "re");
    if (pipe == nullptr) abort();
    std::string text;
    const bool isRead = android::base::ReadFdToString(fileno(pipe), &text);
    if (pclose(pipe) != 0 || !isRead) abort();
    return text;
}

}  // namespace com::velmar::os::statsdstructuredlogger
