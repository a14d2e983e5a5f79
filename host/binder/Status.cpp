// SPDX-License-Identifier: Apache-2.0
//
// Status on the wire:
//
//      0                                            fine, the results follow
//      EX_HAS_REPLY_HEADER, header size, header     fine, sent by a Java service
//      exception, message, trace size, trace        refused
//      ... and then, for EX_SERVICE_SPECIFIC        the service's own error code
//      ... and then, for EX_PARCELABLE              size of a parcelable, which is skipped
#include <binder/Status.h>

#include <limits>

namespace android {
namespace binder {
namespace {

/** Skips a part that opens with its own size, which counts the size word as well. */
status_t skipSized(const Parcel& parcel) {
    const size_t start = parcel.dataPosition();
    int32_t size = 0;
    if (const status_t status = parcel.readInt32(&size); status != OK) return status;
    if (size < int32_t(sizeof(size))) return size == 0 ? OK : UNKNOWN_ERROR;
    if (size_t(size) > parcel.dataSize() - start) return UNKNOWN_ERROR;
    parcel.setDataPosition(start + size_t(size));
    return OK;
}

}  // namespace

Status::Status(int32_t exceptionCode, int32_t errorCode, const String8& message)
      : mException(exceptionCode), mErrorCode(errorCode), mMessage(message) {}

Status Status::ok() {
    return {};
}
Status Status::fromExceptionCode(int32_t exceptionCode, const String8& message) {
    return Status(exceptionCode, OK, message);
}
Status Status::fromExceptionCode(int32_t exceptionCode, const char* message) {
    return fromExceptionCode(exceptionCode, String8(message));
}
Status Status::fromServiceSpecificError(int32_t serviceSpecificErrorCode, const String8& message) {
    return Status(EX_SERVICE_SPECIFIC, serviceSpecificErrorCode, message);
}
Status Status::fromServiceSpecificError(int32_t serviceSpecificErrorCode, const char* message) {
    return fromServiceSpecificError(serviceSpecificErrorCode, String8(message));
}
Status Status::fromStatusT(status_t status) {
    Status result;
    result.setFromStatusT(status);
    return result;
}

void Status::setException(int32_t exceptionCode, const String8& message) {
    *this = Status(exceptionCode, OK, message);
}
void Status::setServiceSpecificError(int32_t errorCode, const String8& message) {
    *this = Status(EX_SERVICE_SPECIFIC, errorCode, message);
}
void Status::setFromStatusT(status_t status) {
    *this = status == OK ? Status() : Status(EX_TRANSACTION_FAILED, status, String8());
}

status_t Status::readFromParcel(const Parcel& parcel) {
    const auto read = [&]() -> status_t {
        int32_t exception = EX_NONE;
        if (const status_t status = parcel.readInt32(&exception); status != OK) return status;
        if (exception == EX_HAS_REPLY_HEADER) {
            if (const status_t status = skipSized(parcel); status != OK) return status;
            exception = EX_NONE;
        }
        if (exception == EX_NONE) {
            *this = Status();
            return OK;
        }
        // Never on the wire: who sends it wants to pass for the transport.
        if (exception == EX_TRANSACTION_FAILED) return UNKNOWN_ERROR;
        std::optional<String16> message;
        if (const status_t status = parcel.readString16(&message); status != OK) return status;
        if (const status_t status = skipSized(parcel); status != OK) return status;
        int32_t errorCode = OK;
        if (exception == EX_SERVICE_SPECIFIC) {
            if (const status_t status = parcel.readInt32(&errorCode); status != OK) return status;
        } else if (exception == EX_PARCELABLE) {
            if (const status_t status = skipSized(parcel); status != OK) return status;
        }
        *this = Status(exception, errorCode, message ? String8(*message) : String8());
        return OK;
    };
    const status_t status = read();
    if (status != OK) setFromStatusT(status);
    return status;
}

status_t Status::writeToParcel(Parcel* parcel) const {
    if (mException == EX_TRANSACTION_FAILED) return mErrorCode;
    status_t status = parcel->writeInt32(mException);
    if (mException == EX_NONE) return status;
    status = status != OK ? status : parcel->writeString16(String16(mMessage));
    status = status != OK ? status : parcel->writeInt32(/*no trace=*/0);
    if (mException == EX_SERVICE_SPECIFIC) {
        status = status != OK ? status : parcel->writeInt32(mErrorCode);
    } else if (mException == EX_PARCELABLE) {
        status = status != OK ? status : parcel->writeInt32(/*no parcelable=*/0);
    }
    return status;
}

std::string Status::exceptionToString(int32_t exceptionCode) {
    switch (exceptionCode) {
        case EX_NONE:
            return "EX_NONE";
        case EX_SECURITY:
            return "EX_SECURITY";
        case EX_BAD_PARCELABLE:
            return "EX_BAD_PARCELABLE";
        case EX_ILLEGAL_ARGUMENT:
            return "EX_ILLEGAL_ARGUMENT";
        case EX_NULL_POINTER:
            return "EX_NULL_POINTER";
        case EX_ILLEGAL_STATE:
            return "EX_ILLEGAL_STATE";
        case EX_NETWORK_MAIN_THREAD:
            return "EX_NETWORK_MAIN_THREAD";
        case EX_UNSUPPORTED_OPERATION:
            return "EX_UNSUPPORTED_OPERATION";
        case EX_SERVICE_SPECIFIC:
            return "EX_SERVICE_SPECIFIC";
        case EX_PARCELABLE:
            return "EX_PARCELABLE";
        case EX_HAS_REPLY_HEADER:
            return "EX_HAS_REPLY_HEADER";
        case EX_TRANSACTION_FAILED:
            return "EX_TRANSACTION_FAILED";
        default:
            return std::to_string(exceptionCode);
    }
}

String8 Status::toString8() const {
    if (mException == EX_NONE) return String8("No error");
    std::string text =
            "Status(" + std::to_string(mException) + ", " + exceptionToString(mException) + "): '";
    if (mException == EX_SERVICE_SPECIFIC || mException == EX_TRANSACTION_FAILED) {
        text += std::to_string(mErrorCode) + ": ";
    }
    return String8((text + mMessage.string() + "'").c_str());
}

std::stringstream& operator<<(std::stringstream& stream, const Status& status) {
    stream << status.toString8().string();
    return stream;
}

}  // namespace binder
}  // namespace android
