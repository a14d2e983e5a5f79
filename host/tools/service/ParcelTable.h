// SPDX-License-Identifier: Apache-2.0
//
// Parcel table: bytes of a parcel for people.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tools {

/**
 * "Parcel(NULL)" for none; up to 16 bytes on one line, more in a table of 16 a line:
 *
 *      Parcel(00000000 00000001   '........')
 *      Parcel(
 *        0x00000000: 00000000 00000003 00620061 00000063 '........a.b.c...'
 *        0x00000010: 0000002a                            '*...            ')
 *
 * Each group of eight digits is a 32-bit number in the machine's byte order; the text shows the
 * bytes as they stand, a point for what is no printable ASCII character.
 */
[[nodiscard]] std::string parcelTable(const uint8_t* data, size_t size);

}  // namespace tools
