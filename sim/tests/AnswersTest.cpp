// SPDX-License-Identifier: Apache-2.0
// Differences between the answers that are due and those that came.
#include "session/Answers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace sim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const Answers kDue{{{"a", kBoth}, {"b", kHeadOnly}}, "a", "a", ""};

TEST(AnswersTest, equalAnswersDifferInNothing) {
    EXPECT_THAT(differences(kDue, kDue), IsEmpty());
}

TEST(AnswersTest, everyDifferenceIsALineOfItsOwn) {
    const Answers got{{{"a", kHeadOnly}, {"c", kNoFocus}}, "", "b", "it broke"};
    EXPECT_THAT(
            differences(kDue, got),
            ElementsAre(
                    "input of a: expected yes, got no", "head of b: expected yes, got unknown",
                    "input of b: expected no, got unknown", "head of c: expected unknown, got no",
                    "input of c: expected unknown, got no", "immersive app: expected a, got none",
                    "top activity: expected a, got b", "problem: expected none, got it broke"));
}

}  // namespace
}  // namespace sim
