// SPDX-License-Identifier: Apache-2.0
//
// HubFixture: for tests of the hub itself, each with a hub of its own.
#pragma once

#include <gtest/gtest.h>

#include "TestHub.h"

namespace binderhost::tests {

class HubFixture : public ::testing::Test, protected TestHub {};

}  // namespace binderhost::tests
