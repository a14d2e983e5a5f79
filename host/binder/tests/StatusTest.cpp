// SPDX-License-Identifier: Apache-2.0
//
// Status: there and back again, and what is made of replies that are no replies.
#include <binder/Status.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using namespace android;
using binder::Status;

TEST(StatusTest, ComesBackAsItWasSent) {
    const struct {
        Status status;
        const char* text;
    } rows[] = {
            {Status::ok(), "No error"},
            {Status::fromExceptionCode(Status::EX_SECURITY), "Status(-1, EX_SECURITY): ''"},
            {Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT, "why"),
             "Status(-3, EX_ILLEGAL_ARGUMENT): 'why'"},
            {Status::fromServiceSpecificError(42, "own"),
             "Status(-8, EX_SERVICE_SPECIFIC): '42: own'"},
            {Status::fromServiceSpecificError(-1), "Status(-8, EX_SERVICE_SPECIFIC): '-1: '"},
            {Status::fromExceptionCode(Status::EX_PARCELABLE), "Status(-9, EX_PARCELABLE): ''"},
            {Status::fromExceptionCode(-77), "Status(-77, -77): ''"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(row.status.toString8(), String8(row.text));
        Parcel parcel;
        ASSERT_EQ(row.status.writeToParcel(&parcel), OK);
        parcel.writeInt32(1234);
        parcel.setDataPosition(0);
        Status read = Status::fromStatusT(-1);
        ASSERT_EQ(read.readFromParcel(parcel), OK);
        EXPECT_EQ(read.toString8(), row.status.toString8());
        EXPECT_EQ(read.isOk(), row.status.isOk());
        EXPECT_EQ(read.serviceSpecificErrorCode(), row.status.serviceSpecificErrorCode());
        EXPECT_EQ(parcel.readInt32(), 1234) << "what follows must be found";
    }
}

TEST(StatusTest, TransportErrorIsReturnedAndNotWritten) {
    const Status status = Status::fromStatusT(DEAD_OBJECT);
    Parcel parcel;
    EXPECT_EQ(status.writeToParcel(&parcel), DEAD_OBJECT);
    EXPECT_EQ(parcel.dataSize(), 0u);
    EXPECT_EQ(status.exceptionCode(), Status::EX_TRANSACTION_FAILED);
    EXPECT_EQ(status.transactionError(), DEAD_OBJECT);
    EXPECT_FALSE(status.isOk());
    EXPECT_TRUE(Status::fromStatusT(OK).isOk());
}

TEST(StatusTest, ReplyHeaderIsSkipped) {
    Parcel parcel;
    parcel.writeInt32(Status::EX_HAS_REPLY_HEADER);
    parcel.writeInt32(12);
    parcel.writeInt64(0);
    parcel.writeInt32(55);
    parcel.setDataPosition(0);
    Status status;
    EXPECT_EQ(status.readFromParcel(parcel), OK);
    EXPECT_TRUE(status.isOk());
    EXPECT_EQ(parcel.readInt32(), 55);
}

TEST(StatusTest, DamagedRepliesAreErrors) {
    const struct {
        const char* name;
        std::vector<int32_t> words;
    } rows[] = {
            {"nothing", {}},
            {"cut message", {Status::EX_ILLEGAL_ARGUMENT, 100}},
            {"no trace", {Status::EX_ILLEGAL_ARGUMENT, 1, 'x'}},
            {"trace beyond the end", {Status::EX_ILLEGAL_ARGUMENT, 1, 'x', 1000}},
            {"no service code", {Status::EX_SERVICE_SPECIFIC, 1, 'x', 0}},
            {"header beyond the end", {Status::EX_HAS_REPLY_HEADER, INT32_MAX}},
            {"header of negative size", {Status::EX_HAS_REPLY_HEADER, -8}},
            {"a transport error that was sent", {Status::EX_TRANSACTION_FAILED}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Parcel parcel;
        for (const int32_t word : row.words)
            parcel.writeInt32(word);
        parcel.setDataPosition(0);
        Status status;
        EXPECT_NE(status.readFromParcel(parcel), OK);
        EXPECT_EQ(status.exceptionCode(), Status::EX_TRANSACTION_FAILED);
    }
}

}  // namespace
