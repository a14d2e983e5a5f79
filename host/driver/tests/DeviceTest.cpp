// SPDX-License-Identifier: Apache-2.0
//
// What the kernel driver says of a device that it cannot use. No device is needed.
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/android/binder.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdarg>
#include <string>

#include "driver/Driver.h"

namespace {

/** What /dev/null answers when it is asked for its version of the protocol; 0: the truth. */
int gVersionOfNull = 0;

}  // namespace

/** Stands in for the C library's: a device of another version is nowhere to be had. */
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request == BINDER_VERSION && gVersionOfNull != 0) {
        static_cast<binder_version*>(argument)->protocol_version = gVersionOfNull;
        return 0;
    }
    return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}

namespace binderhost::tests {
namespace {

constexpr uid_t kNobody = 65534;

class DeviceTest : public testing::Test {
protected:
    ~DeviceTest() override { gVersionOfNull = 0; }

    static std::string refusal(const std::string& path) {
        std::string error;
        EXPECT_EQ(openDriver(path, &error), nullptr);
        return error;
    }

    static void expectSays(const std::string& said, const std::string& due) {
        EXPECT_NE(said.find(due), std::string::npos) << said;
    }
};

TEST_F(DeviceTest, aMissingDeviceIsNamedWithTheModuleThatMakesIt) {
    const std::string said = refusal("/dev/no-binder");
    expectSays(said, "/dev/no-binder: No such file or directory");
    expectSays(said, "modprobe binder_linux");
}

TEST_F(DeviceTest, aDeviceOfSomethingElseIsCalledThat) {
    expectSays(refusal("/dev/null"), "/dev/null is no binder device");
}

TEST_F(DeviceTest, anotherVersionOfTheProtocolIsRefusedWithBothNumbers) {
    gVersionOfNull = BINDER_CURRENT_PROTOCOL_VERSION - 1;
    const std::string said = refusal("/dev/null");
    expectSays(said, "/dev/null speaks version " + std::to_string(gVersionOfNull));
    expectSays(said, "speaks " + std::to_string(BINDER_CURRENT_PROTOCOL_VERSION));
}

TEST_F(DeviceTest, aDeviceWithoutABufferIsRefused) {
    gVersionOfNull = BINDER_CURRENT_PROTOCOL_VERSION;
    expectSays(refusal("/dev/null"), "/dev/null: no memory for its buffer");
}

TEST_F(DeviceTest, aDeviceThatIsNotPermittedIsNamedWithTheUser) {
    const android::base::unique_fd terminal(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_TRUE(terminal.ok());
    ASSERT_EQ(unlockpt(terminal.get()), 0);
    const std::string path = ptsname(terminal.get());
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    const pid_t child = fork();
    if (child == 0) {
        // Root may open everything.
        if (geteuid() == 0 && setresuid(kNobody, kNobody, kNobody) != 0) _exit(2);
        const std::string due = path + ": Permission denied: uid " + std::to_string(geteuid());
        _exit(refusal(path).find(due) == std::string::npos ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(DeviceTest, devicesAreToldFromSocketsByTheirKindOrFolder) {
    const struct {
        const char* path;
        bool isDevice;
    } rows[] = {
            {"/dev/null", true}, {"/dev/no-binder", true}, {"/tmp", false}, {"/tmp/no-hub", false}};
    for (const auto& row : rows)
        EXPECT_EQ(namesDevice(row.path), row.isDevice) << row.path;
}

}  // namespace
}  // namespace binderhost::tests
