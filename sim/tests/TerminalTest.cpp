// SPDX-License-Identifier: Apache-2.0
// The terminal that a person sits at: what it does when there is nothing, and no room.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <unistd.h>

#include <string>

#include "scenario/Terminal.h"

namespace sim::scenario {
namespace {

using android::base::unique_fd;

/** This process's standard streams are a terminal without modes, as long as it lives. */
class TerminalTest : public testing::Test {
protected:
    void SetUp() override {
        termios raw{};
        cfmakeraw(&raw);
        int person = -1;
        int program = -1;
        ASSERT_EQ(openpty(&person, &program, nullptr, &raw, nullptr), 0);
        mPerson.reset(person);
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO}) {
            mBefore[fd].reset(fcntl(fd, F_DUPFD_CLOEXEC, 3));
            dup2(program, fd);
        }
        close(program);
    }

    void TearDown() override {
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO})
            dup2(mBefore[fd].get(), fd);
    }

    unique_fd mPerson;
    unique_fd mBefore[2];
};

TEST_F(TerminalTest, aKeyThatIsNotThereAfterAllIsNotWaitedFor) {
    StopSignals stops;
    Terminal terminal(stops);
    ASSERT_NE(fcntl(terminal.keysFd(), F_GETFL) & O_NONBLOCK, 0) << "or the next would wait";
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFL) & O_NONBLOCK, 0) << "whoever shares it may not know";
    char key = 0;
    EXPECT_FALSE(terminal.readByte(&key).has_value());
    ASSERT_EQ(write(mPerson.get(), "x", 1), 1);
    pollfd keys{terminal.keysFd(), POLLIN, 0};
    ASSERT_EQ(poll(&keys, 1, 30'000), 1);
    EXPECT_EQ(terminal.readByte(&key), 1u);
    EXPECT_EQ(key, 'x');
    mPerson.reset();
    ASSERT_EQ(poll(&keys, 1, 30'000), 1);
    EXPECT_EQ(terminal.readByte(&key), 0u);
}

TEST_F(TerminalTest, aSignalToEndIsNotHeldUpByAScreenWithoutRoom) {
    StopSignals stops;
    Terminal terminal(stops);
    raise(SIGTERM);
    const std::string text(1 << 20, 'x');
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(std::fwrite(text.data(), 1, text.size(), terminal.screen()), text.size());
        EXPECT_EQ(std::fflush(terminal.screen()), 0);
        EXPECT_EQ(stops.take(), round == 0 ? SIGTERM : 0) << "left for who asks, and remembered";
    }
}

}  // namespace
}  // namespace sim::scenario
