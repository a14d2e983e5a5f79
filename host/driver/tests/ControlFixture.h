// SPDX-License-Identifier: Apache-2.0
//
// ControlFixture: a hub that the test controls.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>

#include "TestHub.h"
#include "driver/AssignedUids.h"
#include "driver/HubControl.h"

namespace binderhost {

inline void PrintTo(HubControl::Status status, std::ostream* out) {
    *out << '"' << HubControl::describe(status) << '"';
}

}  // namespace binderhost

namespace binderhost::tests {

/** Inode number of the process's folder; 0 when it has none. */
inline uint64_t folderOf(pid_t pid) {
    struct stat folder {};
    const std::string path = "/proc/" + std::to_string(pid);
    return stat(path.c_str(), &folder) == 0 ? folder.st_ino : 0;
}

/** Both ends of a control connection, made before the hub that gets one of them. */
struct ControlEnds {
    ControlEnds() {
        std::string error;
        control = HubControl::make(&hubs, &error);
        if (!control) throw std::runtime_error(error);
    }
    android::base::unique_fd hubs;
    std::unique_ptr<HubControl> control;
};

class ControlFixture : public ::testing::Test, private ControlEnds, protected TestHub {
protected:
    using Status = HubControl::Status;
    static constexpr std::chrono::seconds kPatience{20};
    static constexpr uid_t kUid = 10050;

    ControlFixture() : TestHub(hubs.get()) { hubs.reset(); }

    void SetUp() override { ASSERT_EQ(control->awaitReady(kPatience), Status::Done); }

    [[nodiscard]] HubControl& hub() { return *control; }
    void hangUp() { control.reset(); }

    /** What the hub tells those who know a pid only. */
    [[nodiscard]] std::optional<uid_t> uidInTable(pid_t pid) const {
        std::string error;
        const auto uids = AssignedUids::open(path(), &error);
        EXPECT_NE(uids, nullptr) << error;
        return uids ? uids->of(pid, folderOf(pid)) : std::nullopt;
    }
};

}  // namespace binderhost::tests
