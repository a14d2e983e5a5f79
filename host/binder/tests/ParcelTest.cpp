// SPDX-License-Identifier: Apache-2.0
//
// Parcels: the bytes they are on the wire, what comes back of them, and what bad ones do.
#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace android;
using Bytes = std::vector<uint8_t>;

Bytes bytesOf(const Parcel& parcel) {
    return Bytes(parcel.data(), parcel.data() + parcel.dataSize());
}

Bytes words(std::initializer_list<uint32_t> values) {
    Bytes bytes;
    for (const uint32_t value : values) {
        for (int shift = 0; shift < 32; shift += 8)
            bytes.push_back(uint8_t(value >> shift));
    }
    return bytes;
}

struct Golden {
    const char* name;
    std::function<status_t(Parcel*)> write;
    Bytes bytes;
};

std::vector<Golden> goldenParcels() {
    using StringList = std::vector<std::string>;
    return {
            {"bool", [](Parcel* p) { return p->writeBool(true); }, words({1})},
            {"byte", [](Parcel* p) { return p->writeByte(-1); }, words({0xffffffff})},
            {"char", [](Parcel* p) { return p->writeChar(u'A'); }, words({0x41})},
            {"int32", [](Parcel* p) { return p->writeInt32(-2); }, words({0xfffffffe})},
            {"int64", [](Parcel* p) { return p->writeInt64(0x0102030405060708); },
             words({0x05060708, 0x01020304})},
            {"double", [](Parcel* p) { return p->writeDouble(1.0); }, words({0, 0x3ff00000})},
            {"text", [](Parcel* p) { return p->writeString16(String16("ab")); },
             words({2, 0x00620061, 0})},
            {"odd text", [](Parcel* p) { return p->writeString16(String16("a")); },
             words({1, 0x61})},
            {"empty text", [](Parcel* p) { return p->writeString16(String16()); }, words({0, 0})},
            {"absent text", [](Parcel* p) { return p->writeString16(std::unique_ptr<String16>()); },
             words({0xffffffff})},
            {"absent text, newer",
             [](Parcel* p) { return p->writeString16(std::optional<String16>()); },
             words({0xffffffff})},
            {"UTF-8", [](Parcel* p) { return p->writeUtf8AsUtf16(std::string("\xc3\xa9")); },
             words({1, 0xe9})},
            {"UTF-8 beyond the first plane",
             [](Parcel* p) { return p->writeUtf8AsUtf16(std::string("\xf4\x8f\xbf\xbf")); },
             words({2, 0xdfffdbff, 0})},
            {"bytes",
             [](Parcel* p) {
                 return p->writeByteVector({1, 2, 3, 4, 5});
             },
             words({5, 0x04030201, 5})},
            {"ints",
             [](Parcel* p) {
                 return p->writeInt32Vector({1, -1});
             },
             words({2, 1, 0xffffffff})},
            {"absent ints",
             [](Parcel* p) { return p->writeInt32Vector(std::optional<std::vector<int32_t>>()); },
             words({0xffffffff})},
            {"bools",
             [](Parcel* p) {
                 return p->writeBoolVector({true, false});
             },
             words({2, 1, 0})},
            {"texts",
             [](Parcel* p) {
                 return p->writeUtf8VectorAsUtf16Vector(StringList{"a", ""});
             },
             words({2, 1, 0x61, 0, 0})},
            {"null binder", [](Parcel* p) { return p->writeStrongBinder(nullptr); },
             words({0x73622a85, 0x17f, 0, 0, 0, 0, 0})},
            {"token", [](Parcel* p) { return p->writeInterfaceToken(String16("I")); },
             words({0x80000000, 0xffffffff, 0x53595354, 1, 0x49})},
            {"no exception", [](Parcel* p) { return p->writeNoException(); }, words({0})},
    };
}

TEST(ParcelTest, ValuesHaveTheirBytes) {
    for (const Golden& row : goldenParcels()) {
        SCOPED_TRACE(row.name);
        Parcel parcel;
        EXPECT_EQ(row.write(&parcel), OK);
        EXPECT_EQ(bytesOf(parcel), row.bytes);
    }
}

TEST(ParcelTest, BinderIsFollowedByItsStability) {
    const sp<BBinder> binder = new BBinder();
    Parcel parcel;
    ASSERT_EQ(parcel.writeStrongBinder(binder), OK);
    ASSERT_EQ(parcel.dataSize(), 28u);
    EXPECT_EQ(parcel.objectsCount(), 1u);
    parcel.setDataPosition(24);
    EXPECT_EQ(parcel.readInt32(), 12);
    parcel.setDataPosition(0);
    EXPECT_EQ(parcel.readStrongBinder(), binder);
}

TEST(ParcelTest, ParcelHoldsTheBindersInIt) {
    sp<BBinder> binder = new BBinder();
    const wp<BBinder> weak = binder;
    Parcel parcel;
    parcel.writeStrongBinder(binder);
    binder.clear();
    EXPECT_NE(weak.promote(), nullptr);
    parcel.freeData();
    EXPECT_EQ(weak.promote(), nullptr);
}

TEST(ParcelTest, EveryValueComesBack) {
    const sp<IBinder> binder = new BBinder();
    Parcel parcel;
    parcel.writeInt32(std::numeric_limits<int32_t>::min());
    parcel.writeInt64(std::numeric_limits<int64_t>::max());
    parcel.writeFloat(1.5F);
    parcel.writeString8(String8("eight"));
    parcel.writeCString("c");
    parcel.writeUtf8AsUtf16(std::string("t\xc3\xa4xt"));
    parcel.writeString16(u"a\0b", 3);
    parcel.writeUtf8AsUtf16(std::string("a\0b", 3));
    parcel.writeString16Vector(std::vector<String16>{String16("x"), String16("")});
    parcel.writeStrongBinderVector(std::vector<sp<IBinder>>{binder, nullptr});
    parcel.setDataPosition(0);
    EXPECT_EQ(parcel.readInt32(), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(parcel.readInt64(), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(parcel.readFloat(), 1.5F);
    EXPECT_EQ(parcel.readString8(), String8("eight"));
    EXPECT_STREQ(parcel.readCString(), "c");
    std::string text;
    EXPECT_EQ(parcel.readUtf8FromUtf16(&text), OK);
    EXPECT_EQ(text, "t\xc3\xa4xt");
    EXPECT_EQ(parcel.readString16(), String16(u"a\0b", 3));
    EXPECT_EQ(parcel.readUtf8FromUtf16(&text), OK);
    EXPECT_EQ(text, std::string("a\0b", 3));
    std::vector<String16> texts;
    EXPECT_EQ(parcel.readString16Vector(&texts), OK);
    EXPECT_EQ(texts, (std::vector<String16>{String16("x"), String16("")}));
    std::vector<sp<IBinder>> binders;
    EXPECT_EQ(parcel.readStrongBinderVector(&binders), OK);
    EXPECT_EQ(binders, (std::vector<sp<IBinder>>{binder, nullptr}));
    EXPECT_EQ(parcel.dataAvail(), 0u);
}

TEST(ParcelTest, AbsentDiffersFromEmpty) {
    Parcel parcel;
    parcel.writeString16(std::optional<String16>());
    parcel.writeString16(String16());
    parcel.writeInt32Vector(std::unique_ptr<std::vector<int32_t>>());
    parcel.writeInt32Vector(std::vector<int32_t>());
    parcel.setDataPosition(0);
    std::optional<String16> text;
    EXPECT_EQ(parcel.readString16(&text), OK);
    EXPECT_FALSE(text.has_value());
    std::unique_ptr<String16> older;
    EXPECT_EQ(parcel.readString16(&older), OK);
    ASSERT_NE(older, nullptr);
    EXPECT_EQ(*older, String16());
    std::optional<std::vector<int32_t>> numbers;
    EXPECT_EQ(parcel.readInt32Vector(&numbers), OK);
    EXPECT_FALSE(numbers.has_value());
    EXPECT_EQ(parcel.readInt32Vector(&numbers), OK);
    EXPECT_EQ(numbers, std::vector<int32_t>());

    parcel.setDataPosition(0);
    String16 plain;
    EXPECT_EQ(parcel.readString16(&plain), UNEXPECTED_NULL);
    parcel.setDataPosition(12);
    std::vector<int32_t> plainNumbers;
    EXPECT_EQ(parcel.readInt32Vector(&plainNumbers), UNEXPECTED_NULL);
}

TEST(ParcelTest, InvalidUtf8IsRefused) {
    Parcel parcel;
    EXPECT_EQ(parcel.writeUtf8AsUtf16(std::string("\xff\xfe")), BAD_VALUE);
    EXPECT_EQ(parcel.dataSize(), 0u);
}

TEST(ParcelTest, HalvesOfSurrogatePairsAreLeftOut) {
    const std::pair<std::u16string, std::string> rows[] = {
            {u"\xd800", ""},         {u"\xdc00\xd800", ""},
            {u"a\xdbff", "a"},       {u"\xd800\xd800\xdc00", "\xf0\x90\x80\x80"},
            {u"\xd800z\xdc00", "z"},
    };
    for (const auto& [units, expected] : rows) {
        Parcel parcel;
        parcel.writeString16(units.data(), units.size());
        parcel.setDataPosition(0);
        std::string text;
        EXPECT_EQ(parcel.readUtf8FromUtf16(&text), OK);
        EXPECT_EQ(text, expected);
    }
}

TEST(ParcelTest, SizesThatNoCountCanSayAreRefused) {
    const uint8_t byte = 0;
    const int32_t number = 0;
    for (const size_t size :
         {size_t{INT32_MAX}, size_t{INT32_MAX} + 1, size_t{1} << 33, SIZE_MAX}) {
        SCOPED_TRACE(size);
        Parcel parcel;
        EXPECT_EQ(parcel.writeByteArray(size, &byte), BAD_VALUE);
        EXPECT_EQ(parcel.writeInt32Array(size, &number), BAD_VALUE);
        EXPECT_EQ(parcel.writeString16(u"", size), BAD_VALUE);
        EXPECT_EQ(parcel.setDataSize(size), BAD_VALUE);
        EXPECT_EQ(parcel.setDataCapacity(size), BAD_VALUE);
        EXPECT_EQ(parcel.dataSize(), 0u);
        EXPECT_EQ(parcel.writeInplace(size), nullptr);
        EXPECT_EQ(parcel.errorCheck(), BAD_VALUE);
    }
}

TEST(ParcelTest, CountsBeyondWhatIsLeftAreRefused) {
    for (const int32_t count :
         {2, 1000, std::numeric_limits<int32_t>::max(), -2, std::numeric_limits<int32_t>::min()}) {
        SCOPED_TRACE(count);
        Parcel parcel;
        parcel.writeInt32(count);
        parcel.writeInt32(7);
        const auto refused = [&parcel](auto read) {
            parcel.setDataPosition(0);
            EXPECT_NE(read(), OK);
        };
        std::vector<int32_t> ints{5};
        std::optional<std::vector<int64_t>> longs;
        std::vector<bool> truths;
        std::vector<String16> texts;
        std::vector<std::string> utf8;
        std::vector<sp<IBinder>> binders;
        String16 text;
        String8 text8;
        refused([&] { return parcel.readInt32Vector(&ints); });
        refused([&] { return parcel.readInt64Vector(&longs); });
        refused([&] { return parcel.readBoolVector(&truths); });
        refused([&] { return parcel.readString16Vector(&texts); });
        refused([&] { return parcel.readUtf8VectorFromUtf16Vector(&utf8); });
        refused([&] { return parcel.readStrongBinderVector(&binders); });
        if (count > 4 || count < 0) {
            std::unique_ptr<std::vector<uint8_t>> bytes;
            refused([&] { return parcel.readByteVector(&bytes); });
            refused([&] { return parcel.readString16(&text); });
            refused([&] { return parcel.readUtf8FromUtf16(&utf8.emplace_back()); });
            refused([&] { return parcel.readString8(&text8); });
        }
        EXPECT_EQ(ints, std::vector<int32_t>{5});
    }
}

TEST(ParcelTest, NothingIsReadBeyondTheEnd) {
    for (const size_t position : {size_t{4}, size_t{5}, size_t{1} << 31, SIZE_MAX}) {
        Parcel parcel;
        parcel.writeInt32(1);
        parcel.setDataPosition(position);
        int32_t value = 77;
        EXPECT_EQ(parcel.readInt32(&value), NOT_ENOUGH_DATA);
        EXPECT_EQ(value, 77);
        EXPECT_EQ(parcel.readInplace(1), nullptr);
        EXPECT_EQ(parcel.dataAvail(), 0u);
        EXPECT_EQ(parcel.readCString(), nullptr);
    }
}

TEST(ParcelTest, PlainDataIsNoBinder) {
    Parcel parcel;
    for (int i = 0; i < 7; i++)
        parcel.writeInt32(0x73622a85);
    parcel.setDataPosition(0);
    sp<IBinder> binder;
    EXPECT_EQ(parcel.readStrongBinder(&binder), BAD_TYPE);
    EXPECT_EQ(parcel.readNullableStrongBinder(&binder), BAD_TYPE);
    EXPECT_LT(parcel.readFileDescriptor(), 0);
    EXPECT_EQ(binder, nullptr);
}

TEST(ParcelTest, BinderIsNoPlainDataAndNoDescriptor) {
    Parcel parcel;
    parcel.writeStrongBinder(new BBinder());
    for (const size_t position : {0, 4, 8, 16, 20}) {
        parcel.setDataPosition(position);
        int32_t value = 77;
        EXPECT_EQ(parcel.readInt32(&value), PERMISSION_DENIED);
        EXPECT_EQ(value, 77) << "an address must not leak";
    }
    parcel.setDataPosition(0);
    EXPECT_LT(parcel.readFileDescriptor(), 0);
    EXPECT_NE(parcel.readStrongBinder(), nullptr);
}

TEST(ParcelTest, NullBinderIsAValueOnlyWhereItMayBe) {
    Parcel parcel;
    parcel.writeStrongBinder(nullptr);
    sp<IBinder> binder = new BBinder();
    parcel.setDataPosition(0);
    EXPECT_EQ(parcel.readStrongBinder(&binder), UNEXPECTED_NULL);
    EXPECT_NE(binder, nullptr);
    parcel.setDataPosition(0);
    EXPECT_EQ(parcel.readNullableStrongBinder(&binder), OK);
    EXPECT_EQ(binder, nullptr);
}

TEST(ParcelTest, TokenIsComparedWhole) {
    const struct {
        const char* name;
        std::function<void(Parcel*)> write;
        bool matches;
    } rows[] = {
            {"the same", [](Parcel* p) { p->writeInterfaceToken(String16("a.IB")); }, true},
            {"longer", [](Parcel* p) { p->writeInterfaceToken(String16("a.IBC")); }, false},
            {"shorter", [](Parcel* p) { p->writeInterfaceToken(String16("a.I")); }, false},
            {"empty", [](Parcel* p) { p->writeInterfaceToken(String16()); }, false},
            {"nothing", [](Parcel*) {}, false},
            {"other header",
             [](Parcel* p) {
                 for (int i = 0; i < 3; i++)
                     p->writeInt32(-1);
                 p->writeString16(String16("a.IB"));
             },
             false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Parcel parcel;
        row.write(&parcel);
        parcel.setDataPosition(0);
        EXPECT_EQ(parcel.enforceInterface(String16("a.IB")), row.matches);
    }
}

TEST(ParcelTest, TokenCarriesPolicyAndWorkSource) {
    IPCThreadState* thread = IPCThreadState::self();
    Parcel parcel;
    const int64_t token = thread->setCallingWorkSourceUid(1234);
    thread->setStrictModePolicy(8);
    parcel.writeInterfaceToken(String16("I"));
    thread->restoreCallingWorkSource(token);
    thread->setStrictModePolicy(0);
    EXPECT_FALSE(thread->shouldPropagateWorkSource());
    parcel.setDataPosition(0);
    EXPECT_TRUE(parcel.enforceInterface(String16("I")));
    EXPECT_EQ(thread->getCallingWorkSourceUid(), 1234u);
    EXPECT_EQ(uint32_t(thread->getStrictModePolicy()), 0x80000008u);
    thread->restoreCallingWorkSource(token);
    thread->setStrictModePolicy(0);
}

TEST(ParcelTest, CutParcelForgetsTheObjectsBehindTheCut) {
    const sp<BBinder> binder = new BBinder();
    Parcel parcel;
    parcel.writeStrongBinder(binder);
    parcel.writeStrongBinder(binder);
    EXPECT_EQ(parcel.setDataSize(50), OK);
    EXPECT_EQ(parcel.objectsCount(), 1u);
    EXPECT_EQ(parcel.setDataSize(20), OK);
    EXPECT_EQ(parcel.objectsCount(), 0u);
}

TEST(ParcelTest, AppendedPartBringsItsObjects) {
    const sp<BBinder> binder = new BBinder();
    Parcel source;
    source.writeInt32(1);
    source.writeStrongBinder(binder);
    source.writeInt32(2);
    Parcel target;
    target.writeInt32(0);
    EXPECT_EQ(target.appendFrom(&source, 0, source.dataSize()), OK);
    EXPECT_EQ(target.objectsCount(), 1u);
    target.setDataPosition(8);
    EXPECT_EQ(target.readStrongBinder(), binder);
    EXPECT_EQ(target.readInt32(), 2);
    EXPECT_EQ(target.appendFrom(&source, 4, 20), OK) << "a cut object is plain bytes";
    EXPECT_EQ(target.objectsCount(), 1u);
    EXPECT_EQ(target.appendFrom(&source, 4, source.dataSize()), BAD_VALUE);
}

TEST(ParcelTest, DescriptorsAreClosedByTheirOwner) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    int copy = -1;
    {
        Parcel parcel;
        EXPECT_FALSE(parcel.hasFileDescriptors());
        EXPECT_EQ(parcel.writeFileDescriptor(ends[0]), OK);
        EXPECT_EQ(parcel.writeFileDescriptor(ends[1], /*takeOwnership=*/true), OK);
        EXPECT_EQ(parcel.writeDupFileDescriptor(ends[0]), OK);
        EXPECT_TRUE(parcel.hasFileDescriptors());
        parcel.setDataPosition(0);
        EXPECT_EQ(parcel.readFileDescriptor(), ends[0]);
        EXPECT_EQ(parcel.readFileDescriptor(), ends[1]);
        base::unique_fd own;
        EXPECT_EQ(parcel.readUniqueFileDescriptor(&own), OK);
        copy = fcntl(own.get(), F_GETFD);
    }
    EXPECT_EQ(copy, FD_CLOEXEC);
    EXPECT_GE(fcntl(ends[0], F_GETFD), 0);
    EXPECT_LT(fcntl(ends[1], F_GETFD), 0);
    close(ends[0]);
}

TEST(ParcelTest, DescriptorsCanBeForbidden) {
    Parcel parcel;
    const bool before = parcel.pushAllowFds(false);
    EXPECT_EQ(parcel.writeFileDescriptor(0), FDS_NOT_ALLOWED);
    EXPECT_EQ(parcel.errorCheck(), FDS_NOT_ALLOWED);
    parcel.restoreAllowFds(before);
    EXPECT_TRUE(parcel.allowFds());
}

}  // namespace
