// SPDX-License-Identifier: Apache-2.0
//
// Parcel table, byte by byte.
#include "service/ParcelTable.h"

#include <gtest/gtest.h>

namespace tools {

TEST(ParcelTable, BytesAreShownAsNumbersAndText) {
    const std::string line("\0\0\0\0\x03\0\0\0a\0b\0c\0\0\0", 16);
    const struct {
        std::string bytes;
        const char* table;
    } kRows[] = {
            {"", "Parcel(NULL)"},
            {line.substr(0, 4), "Parcel(00000000    '....')"},
            {line.substr(0, 8), "Parcel(00000000 00000003   '........')"},
            {line.substr(0, 12), "Parcel(00000000 00000003 00620061  '........a.b.')"},
            {line, "Parcel(00000000 00000003 00620061 00000063 '........a.b.c...')"},
            {"abcde", "Parcel(64636261 65   'abcde')"},
            {line + "*",
             "Parcel(\n"
             "  0x00000000: 00000000 00000003 00620061 00000063 '........a.b.c...'\n"
             "  0x00000010: 2a                                  '*               ')"},
            {line + "*\xff\x7f~ !'\"",
             "Parcel(\n"
             "  0x00000000: 00000000 00000003 00620061 00000063 '........a.b.c...'\n"
             "  0x00000010: 7e7fff2a 22272120                   '*..~ !'\"        ')"},
            {line + line,
             "Parcel(\n"
             "  0x00000000: 00000000 00000003 00620061 00000063 '........a.b.c...'\n"
             "  0x00000010: 00000000 00000003 00620061 00000063 '........a.b.c...')"},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(parcelTable(reinterpret_cast<const uint8_t*>(row.bytes.data()), row.bytes.size()),
                  row.table);
    }
}

}  // namespace tools
