// SPDX-License-Identifier: Apache-2.0
//
// How a call through a generated interface ended: fine, with an exception that the service raised,
// or with a transport error. Exceptions travel at the head of the reply; transport errors do not.
#pragma once

#include <binder/Parcel.h>
#include <utils/String8.h>

#include <cstdint>
#include <sstream>
#include <string>

namespace android {
namespace binder {

class Status final {
public:
    enum Exception {
        EX_NONE = 0,
        EX_SECURITY = -1,
        EX_BAD_PARCELABLE = -2,
        EX_ILLEGAL_ARGUMENT = -3,
        EX_NULL_POINTER = -4,
        EX_ILLEGAL_STATE = -5,
        EX_NETWORK_MAIN_THREAD = -6,
        EX_UNSUPPORTED_OPERATION = -7,
        EX_SERVICE_SPECIFIC = -8,
        EX_PARCELABLE = -9,

        /** A reply of a Java service that opens with a header to skip; no exception. */
        EX_HAS_REPLY_HEADER = -128,
        /** Never on the wire: the transport failed, see transactionError(). */
        EX_TRANSACTION_FAILED = -129,
    };

    static Status ok();
    static Status fromExceptionCode(int32_t exceptionCode, const String8& message = String8());
    static Status fromExceptionCode(int32_t exceptionCode, const char* message);
    static Status fromServiceSpecificError(int32_t serviceSpecificErrorCode,
                                           const String8& message = String8());
    static Status fromServiceSpecificError(int32_t serviceSpecificErrorCode, const char* message);
    static Status fromStatusT(status_t status);

    static std::string exceptionToString(int32_t exceptionCode);

    Status() = default;

    /** Replaces this with what a reply begins with. The result is the error of reading, if any. */
    status_t readFromParcel(const Parcel& parcel);
    /** A transport error is not written but returned, for onTransact() to return in turn. */
    status_t writeToParcel(Parcel* parcel) const;

    void setException(int32_t exceptionCode, const String8& message);
    void setServiceSpecificError(int32_t errorCode, const String8& message);
    void setFromStatusT(status_t status);

    int32_t exceptionCode() const { return mException; }
    const String8& exceptionMessage() const { return mMessage; }
    status_t transactionError() const {
        return mException == EX_TRANSACTION_FAILED ? mErrorCode : OK;
    }
    int32_t serviceSpecificErrorCode() const {
        return mException == EX_SERVICE_SPECIFIC ? mErrorCode : 0;
    }
    bool isOk() const { return mException == EX_NONE; }

    /** For logs: "No error", or "Status(-3, EX_ILLEGAL_ARGUMENT): 'message'". */
    String8 toString8() const;

private:
    Status(int32_t exceptionCode, int32_t errorCode, const String8& message);

    int32_t mException = EX_NONE;
    int32_t mErrorCode = 0;
    String8 mMessage;
};

std::stringstream& operator<<(std::stringstream& stream, const Status& status);

}  // namespace binder
}  // namespace android
