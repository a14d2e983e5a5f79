// SPDX-License-Identifier: Apache-2.0
//
// Status text. Debian's libutils declares such a function but does not hold it.
#include "StatusText.h"

#include <system_error>

namespace tools {
namespace {

/** What the kernel reserves for error numbers. */
constexpr android::status_t kLargestErrno = 4095;

}  // namespace

std::string statusText(android::status_t status) {
    switch (status) {
#define TEXT_OF(NAME)   \
    case android::NAME: \
        return #NAME
        TEXT_OF(OK);
        TEXT_OF(UNKNOWN_ERROR);
        TEXT_OF(NO_MEMORY);
        TEXT_OF(INVALID_OPERATION);
        TEXT_OF(BAD_VALUE);
        TEXT_OF(BAD_TYPE);
        TEXT_OF(NAME_NOT_FOUND);
        TEXT_OF(PERMISSION_DENIED);
        TEXT_OF(NO_INIT);
        TEXT_OF(ALREADY_EXISTS);
        TEXT_OF(DEAD_OBJECT);
        TEXT_OF(FAILED_TRANSACTION);
        TEXT_OF(BAD_INDEX);
        TEXT_OF(NOT_ENOUGH_DATA);
        TEXT_OF(WOULD_BLOCK);
        TEXT_OF(TIMED_OUT);
        TEXT_OF(UNKNOWN_TRANSACTION);
        TEXT_OF(FDS_NOT_ALLOWED);
        TEXT_OF(UNEXPECTED_NULL);
#undef TEXT_OF
        default:
            break;
    }
    std::string number = "status " + std::to_string(status);
    if (status > 0 || status < -kLargestErrno) return number;
    return number + " (" + std::generic_category().message(-status) + ")";
}

}  // namespace tools
