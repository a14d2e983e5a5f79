// SPDX-License-Identifier: Apache-2.0
//
// TestDevice: on which driver the tests run.
//
// By default each test starts a hub of its own. With TEST_BINDER_DEVICE=/dev/binder those that make
// sense on a kernel's driver use that device instead, one program at a time: a device has one
// context manager. The others skip themselves.
#pragma once

#include <cstdlib>
#include <string>

namespace binderhost::tests {

/** The binder device to test on; empty: hubs of the tests' own. */
inline std::string testDevice() {
    const char* device = std::getenv("TEST_BINDER_DEVICE");
    return device == nullptr ? "" : device;
}

inline bool onDevice() {
    return !testDevice().empty();
}

}  // namespace binderhost::tests

/** At the head of a test that is about the hub itself. */
#define SKIP_ON_DEVICE(reason) \
    if (::binderhost::tests::onDevice()) GTEST_SKIP() << "not on a kernel's driver: " << reason
