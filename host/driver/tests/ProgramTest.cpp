// SPDX-License-Identifier: Apache-2.0
//
// binderhub as a program, and what a driver says when it cannot have a hub.
#include <android-base/file.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "Child.h"
#include "PeerClient.h"
#include "RawClient.h"
#include "TestHub.h"

namespace binderhost::tests {
namespace {

struct Outcome {
    int status;
    std::string out;
    std::string error;
};

void expectSays(const std::string& said, const std::string& due) {
    EXPECT_NE(said.find(due), std::string::npos) << said;
}

class ProgramTest : public HubFixture {
protected:
    /** Runs binderhub to its end. */
    [[nodiscard]] Outcome run(const std::vector<std::string>& arguments) const {
        const std::string out = folder() + "/out", error = folder() + "/error";
        Child child([&](Child::Door&) {
            const int flags = O_WRONLY | O_CREAT | O_TRUNC;
            dup2(open(out.c_str(), flags, 0600), STDOUT_FILENO);
            dup2(open(error.c_str(), flags, 0600), STDERR_FILENO);
            const std::string program = std::string(PROGRAMS) + "/binderhub";
            std::vector<char*> all = {const_cast<char*>("binderhub")};
            for (const auto& each : arguments)
                all.push_back(const_cast<char*>(each.c_str()));
            all.push_back(nullptr);
            execv(program.c_str(), all.data());
        });
        const int status = child.wait();
        return {status, contents(out), contents(error)};
    }
    static std::string contents(const std::string& file) {
        std::string all;
        EXPECT_TRUE(android::base::ReadFileToString(file, &all));
        return all;
    }
    /** The message of a driver that cannot be had. */
    static std::string refusal(const std::string& path) {
        std::string error;
        EXPECT_EQ(openDriver(path, &error), nullptr);
        return error;
    }
    [[nodiscard]] std::string plainFile() const {
        EXPECT_TRUE(android::base::WriteStringToFile("text", folder() + "/file"));
        return folder() + "/file";
    }
};

TEST_F(ProgramTest, helpIsPrintedOnStdoutAndUnknownOptionsGetUsageAndStatusTwo) {
    const Outcome help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("usage: binderhub", 0), 0u);
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--frobnicate"},
                                                  {"--ready-fd", "x"},
                                                  {"--control-fd", "-1"},
                                                  {"--socket"},
                                                  {"surplus"}}) {
        const Outcome bad = run(wrong);
        EXPECT_EQ(bad.status, 2) << wrong[0];
        expectSays(bad.error, "usage: binderhub");
        EXPECT_EQ(bad.out, "") << wrong[0];
    }
}

TEST_F(ProgramTest, aHubThatCannotServeSaysWhyAndLeavesAllAsItWas) {
    const std::string file = plainFile();
    ASSERT_EQ(setenv("XDG_RUNTIME_DIR", folder().c_str(), /*overwrite=*/1), 0);
    ASSERT_EQ(unsetenv("BINDER_DRIVER"), 0);
    ASSERT_EQ(mkdir((folder() + "/binderhub").c_str(), 0755), 0);
    const struct {
        std::vector<std::string> arguments;
        std::string says;
    } rows[] = {{{"--socket", path()}, "a hub already listens on " + path()},
                {{"--socket", file}, "not a socket"},
                {{"--socket", folder() + "/nowhere/hub"}, folder() + "/nowhere"},
                {{}, "only its owner"}};  // the default's folder is open to all
    for (const auto& row : rows) {
        const Outcome hub = run(row.arguments);
        EXPECT_EQ(hub.status, 1) << row.says;
        expectSays(hub.error, row.says);
    }
    EXPECT_EQ(contents(file), "text");
    RawClient stillServed(path());
}

TEST_F(ProgramTest, whatIsNoSocketPairOfThisUsersControlsNoHub) {
    int stream[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, stream), 0);
    const android::base::unique_fd mine(stream[0]), other(stream[1]),
            alone(socket(AF_UNIX, SOCK_SEQPACKET, 0));
    for (const int fd : {STDOUT_FILENO, 9999, mine.get(), alone.get()}) {
        SCOPED_TRACE(fd);
        const std::string socket = folder() + "/controlled";
        const Outcome refused = run({"--socket", socket, "--control-fd", std::to_string(fd)});
        EXPECT_EQ(refused.status, 1);
        expectSays(refused.error, "cannot be controlled through descriptor");
        EXPECT_NE(access(socket.c_str(), F_OK), 0) << "the socket is left";
    }
}

TEST_F(ProgramTest, whenTheHubGoesEveryCallIsRefusedForGood) {
    PeerClient client(path());
    client.write(Commands().looper());
    client.beginRead();
    awaitStat("idle", 1);
    stopHub(SIGKILL);
    expectSays(refusal(path()), "binderhub --socket " + path());
    EXPECT_EQ(client.exchange({}, /*read=*/true), -ECONNREFUSED);
    EXPECT_EQ(client.exchange(Commands().call(0, 1), /*read=*/true), -ECONNREFUSED);
    EXPECT_EQ(client.setMaxThreads(1), -ECONNREFUSED);
    startHub();  // takes over the dead one's socket
    EXPECT_EQ(client.exchange(Commands().call(0, 1), /*read=*/true), -ECONNREFUSED);
}

TEST_F(ProgramTest, theSocketIsOpenToAllAndStatsAreNamedNumbersUntilTheHubGoesWithBoth) {
    struct stat status {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0666u);
    RawClient one(path());
    const std::vector<std::string> ask{"--stats", "--socket", path()};
    Outcome stats = run(ask);
    EXPECT_EQ(stats.status, 0);
    EXPECT_EQ(stats.out.rfind("processes=1\n", 0), 0u) << stats.out;
    stopHub(SIGTERM);
    EXPECT_NE(access(path().c_str(), F_OK), 0);
    stats = run(ask);
    EXPECT_EQ(stats.status, 1);
    expectSays(stats.error, "binderhub --socket " + path());
}

TEST_F(ProgramTest, aDriverSaysWhatIsWrongAndWhatToStart) {
    expectSays(refusal(folder() + "/no"), "binderhub --socket " + folder() + "/no");
    expectSays(refusal(plainFile()), "not a binder hub's socket");
    for (const int type : {SOCK_SEQPACKET, SOCK_STREAM}) {
        const std::string place = folder() + "/other" + std::to_string(type);
        Child other([&](Child::Door& door) {
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            place.copy(address.sun_path, sizeof(address.sun_path) - 1);
            const int listener = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
            require(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
                            listen(listener, 1) == 0,
                    "listen");
            door.tell('l');
            if (type == SOCK_STREAM) door.await('-');
            const int got = accept(listener, nullptr, nullptr);
            char text[64] = "220 welcome, this is some other service, please say who you are";
            require(send(got, text, sizeof(text), MSG_NOSIGNAL) > 0, "send");
            door.await('-');
        });
        other.await('l');
        const std::string error = refusal(place);
        expectSays(error, "not a binder hub");
        expectSays(error, place);
    }
}

TEST_F(ProgramTest, theDefaultPathFollowsTheEnvironment) {
    Child child([](Child::Door&) {
        setenv("BINDER_DRIVER", "/given/path", 1);
        require(driverPath() == "/given/path", "BINDER_DRIVER");
        setenv("BINDER_DRIVER", "", 1);
        setenv("XDG_RUNTIME_DIR", "/run/user/7", 1);
        require(driverPath() == "/run/user/7/binderhub/hub", "XDG_RUNTIME_DIR");
        unsetenv("XDG_RUNTIME_DIR");
        require(driverPath() == "/tmp/binderhub-" + std::to_string(geteuid()) + "/hub", "default");
    });
    EXPECT_EQ(child.wait(), 0);
}

}  // namespace
}  // namespace binderhost::tests
