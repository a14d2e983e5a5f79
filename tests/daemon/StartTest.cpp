// SPDX-License-Identifier: Apache-2.0
// A daemon that cannot start: what it needs, on standard error, and exit status 1.
#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

#include "tests/SampleStack.h"

namespace daemontest {
namespace {

using android::base::unique_fd;
using testing::AllOf;
using testing::HasSubstr;

class StartTest : public testing::Test {
protected:
    /** Runs the daemon there, which is to end at once. */
    static std::string errorAt(const std::string& path) {
        const tools::Transcript told = tools::runTool({"vrfocus"}, {.driver = path});
        EXPECT_EQ(told.status, 1);
        EXPECT_EQ(told.out, "");
        return told.err;
    }
    std::string path(const char* name) const { return std::string(mFolder.path) + "/" + name; }

    TemporaryDir mFolder;
};

TEST_F(StartTest, withoutAHubItNamesTheHub) {
    ASSERT_TRUE(android::base::WriteStringToFile("no hub", path("file")));
    for (const std::string& where : {path("none"), path("no/folder"), path("file"), path(""),
                                     path(std::string(200, 'x').c_str())}) {
        EXPECT_THAT(errorAt(where), AllOf(HasSubstr(where), HasSubstr("binderhub"))) << where;
    }
}

TEST_F(StartTest, atASocketThatNobodyServesItNamesTheHub) {
    const unique_fd socketFd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path("left").c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(socketFd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_THAT(errorAt(path("left")), AllOf(HasSubstr(path("left")), HasSubstr("binderhub")));
}

TEST_F(StartTest, withoutAServiceManagerItNamesTheServiceManager) {
    tools::SampleStack stack;
    stack.startHub();
    EXPECT_THAT(errorAt(stack.surroundings().driver), HasSubstr("servicemanager"));
}

}  // namespace
}  // namespace daemontest
