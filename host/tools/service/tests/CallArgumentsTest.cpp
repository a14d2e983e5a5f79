// SPDX-License-Identifier: Apache-2.0
//
// Call arguments: words become the parcel that a proxy would write.
#include "service/CallArguments.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>

namespace tools {

using android::Parcel;
using android::String16;

namespace {

/** The values of a call, written to the parcel. */
void write(const std::vector<std::string>& values, Parcel* parcel) {
    std::vector<std::string> words{"1"};
    words.insert(words.end(), values.begin(), values.end());
    std::string error;
    const auto arguments = parseCallArguments(words, &error);
    ASSERT_TRUE(arguments) << error;
    ASSERT_TRUE(writeCallArguments(*arguments, parcel, &error)) << error;
}

}  // namespace

TEST(CallArguments, ValuesAreWrittenAsAProxyWritesThem) {
    const struct {
        std::vector<std::string> words;
        std::function<android::status_t(Parcel*)> write;
    } kRows[] = {
            {{}, [](Parcel*) { return android::OK; }},
            {{"i32", "-5"}, [](Parcel* p) { return p->writeInt32(-5); }},
            {{"i32", "0x10"}, [](Parcel* p) { return p->writeInt32(16); }},
            {{"i32", "2147483647"}, [](Parcel* p) { return p->writeInt32(2147483647); }},
            {{"i64", "-9223372036854775808"},
             [](Parcel* p) { return p->writeInt64(std::numeric_limits<int64_t>::min()); }},
            {{"f", "1.5"}, [](Parcel* p) { return p->writeFloat(1.5F); }},
            {{"d", "-1e300"}, [](Parcel* p) { return p->writeDouble(-1e300); }},
            {{"s16", "a b"}, [](Parcel* p) { return p->writeString16(String16("a b")); }},
            {{"s16", ""}, [](Parcel* p) { return p->writeString16(String16("")); }},
            {{"s16", "null"}, [](Parcel* p) { return p->writeString16(String16("null")); }},
            {{"null"}, [](Parcel* p) { return p->writeStrongBinder(nullptr); }},
            {{"i32", "1", "null", "s16", "i32", "i64", "2"},
             [](Parcel* p) {
                 p->writeInt32(1);
                 p->writeStrongBinder(nullptr);
                 p->writeString16(String16("i32"));
                 return p->writeInt64(2);
             }},
    };
    for (const auto& row : kRows) {
        Parcel expected;
        ASSERT_EQ(row.write(&expected), android::OK);
        Parcel parcel;
        write(row.words, &parcel);
        const auto bytes = [](const Parcel& p) {
            return std::vector<uint8_t>(p.data(), p.data() + p.dataSize());
        };
        EXPECT_EQ(bytes(parcel), bytes(expected)) << testing::PrintToString(row.words);
    }
}

TEST(CallArguments, FileIsOpenedForWhatItAllows) {
    TemporaryFile file;
    ASSERT_TRUE(android::base::WriteStringToFd("old", file.fd));
    Parcel parcel;
    write({"fd", file.path, "fd", "/proc/self/status", "fd", SOURCE_ROOT}, &parcel);
    parcel.setDataPosition(0);
    android::base::unique_fd fd;
    ASSERT_EQ(parcel.readUniqueFileDescriptor(&fd), android::OK);
    EXPECT_TRUE(android::base::WriteStringToFd("new", fd));
    std::string text;
    EXPECT_TRUE(android::base::ReadFileToString(file.path, &text));
    EXPECT_EQ(text, "new");
    ASSERT_EQ(parcel.readUniqueFileDescriptor(&fd), android::OK);
    EXPECT_TRUE(android::base::ReadFdToString(fd, &text));
    EXPECT_EQ(parcel.readUniqueFileDescriptor(&fd), android::OK);
}

TEST(CallArguments, CodeIsAnyUnsignedNumber) {
    std::string error;
    EXPECT_EQ(parseCallArguments({"110"}, &error)->code, 110u);
    EXPECT_EQ(parseCallArguments({"0x5f504e47"}, &error)->code, 0x5f504e47u);
    EXPECT_EQ(parseCallArguments({"4294967295"}, &error)->code, 4294967295u);
}

TEST(CallArguments, WrongWordsAreRefusedWithAReason) {
    const struct {
        std::vector<std::string> words;
        const char* error;
    } kRows[] = {
            {{}, "call wants a code"},
            {{"one"}, "'one' is no code of a call"},
            {{"-1"}, "'-1' is no code of a call"},
            {{"4294967296"}, "'4294967296' is no code of a call"},
            {{"1", "u8", "5"}, "unknown type 'u8'"},
            {{"1", "5"}, "unknown type '5'"},
            {{"1", "i32"}, "i32 wants a 32-bit integer"},
            {{"1", "i32", "2147483648"}, "i32 wants a 32-bit integer, not '2147483648'"},
            {{"1", "i32", "1x"}, "i32 wants a 32-bit integer, not '1x'"},
            {{"1", "i32", ""}, "i32 wants a 32-bit integer, not ''"},
            {{"1", "i64", "9223372036854775808"},
             "i64 wants a 64-bit integer, not '9223372036854775808'"},
            {{"1", "f", "1e99"}, "f wants a number, not '1e99'"},
            {{"1", "d", "one"}, "d wants a number, not 'one'"},
            {{"1", "null", "s16"}, "s16 wants UTF-8 text"},
            {{"1", "s16", "\xff"}, "s16 wants UTF-8 text, not '\xff'"},
            {{"1", "fd"}, "fd wants the path of a file"},
    };
    for (const auto& row : kRows) {
        std::string error;
        EXPECT_FALSE(parseCallArguments(row.words, &error)) << row.error;
        EXPECT_EQ(error, row.error);
    }
}

}  // namespace tools
