// SPDX-License-Identifier: Apache-2.0
//
// What the tools share.
#include <gtest/gtest.h>

#include "common/CallWithDeadline.h"
#include "common/StatusText.h"
#include "tests/FakeService.h"

namespace tools {

TEST(StatusText, NamesTheStatusesThatHaveNames) {
    const struct {
        android::status_t status;
        const char* text;
    } kRows[] = {
            {android::OK, "OK"},
            {android::DEAD_OBJECT, "DEAD_OBJECT"},
            {android::PERMISSION_DENIED, "PERMISSION_DENIED"},
            {android::FAILED_TRANSACTION, "FAILED_TRANSACTION"},
            {android::UNKNOWN_ERROR, "UNKNOWN_ERROR"},
            {android::UNKNOWN_TRANSACTION, "UNKNOWN_TRANSACTION"},
            {-EMFILE, "status -24 (Too many open files)"},
            {7, "status 7"},
            {-100'000, "status -100000"},
    };
    for (const auto& row : kRows)
        EXPECT_EQ(statusText(row.status), row.text);
}

TEST(CallWithDeadline, ResultIsHandedOverWhenItComesInTime) {
    const auto result = callWithDeadline<std::string>([] { return std::string("here"); },
                                                      std::chrono::seconds(30));
    EXPECT_EQ(result, "here");
}

TEST(CallWithDeadline, CallThatDoesNotEndIsLeftBehind) {
    const auto gate = std::make_shared<Gate>();
    const auto over = std::make_shared<Gate>();
    const auto call = [gate, over] {
        gate->pass();
        over->open();
        return 1;
    };
    EXPECT_EQ(callWithDeadline<int>(call, std::chrono::milliseconds(1)), std::nullopt);
    gate->open();
    over->pass();
}

}  // namespace tools
