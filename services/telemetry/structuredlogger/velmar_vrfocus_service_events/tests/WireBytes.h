// SPDX-License-Identifier: Apache-2.0
//
// Wire bytes: readable goldens, and the stock decoder's view of them.
#pragma once

#include <string>
#include <string_view>

namespace com::velmar::os::statsdstructuredlogger {

/** The bytes of "0a 02 6869"; blanks are for the reader. */
[[nodiscard]] std::string bytesOf(std::string_view hex);

/** Bytes as hexadecimal digits, for messages of failing tests. */
[[nodiscard]] std::string hexOf(std::string_view bytes);

/** What `protoc --decode_raw` prints for `bytes`; aborts when it cannot be run. */
[[nodiscard]] std::string decodeRaw(const std::string& bytes);

}  // namespace com::velmar::os::statsdstructuredlogger
