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
};

TEST_F(DeviceTest, aDeviceThatCannotBeUsedIsNamedWithTheReason) {
    constexpr int kOurs = BINDER_CURRENT_PROTOCOL_VERSION;
    const std::string ours = std::to_string(kOurs), other = std::to_string(kOurs - 1);
    const struct {
        int version;
        const char* path;
        std::string says;
    } rows[] = {{0, "/dev/no-binder", "/dev/no-binder: No such file or directory"},
                {0, "/dev/no-binder", "modprobe binder_linux"},
                {0, "/dev/null", "/dev/null is no binder device"},
                {kOurs - 1, "/dev/null", "/dev/null speaks version " + other},
                {kOurs - 1, "/dev/null", "this program speaks " + ours},
                {kOurs, "/dev/null", "/dev/null: no memory for its buffer"}};
    for (const auto& row : rows) {
        gVersionOfNull = row.version;
        const std::string said = refusal(row.path);
        EXPECT_NE(said.find(row.says), std::string::npos) << said;
    }
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
