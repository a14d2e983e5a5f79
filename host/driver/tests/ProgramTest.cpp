// SPDX-License-Identifier: Apache-2.0
//
// binderhub as a program, and what a driver says when it cannot have a hub.
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "Child.h"
#include "HubFixture.h"
#include "PeerClient.h"
#include "RawClient.h"

namespace binderhost::tests {
namespace {

struct Outcome {
    int status;
    std::string out;
    std::string error;
};

class ProgramTest : public HubFixture {
protected:
    /** Runs binderhub to its end. */
    Outcome run(const std::vector<std::string>& arguments) const {
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
        std::ostringstream all;
        all << std::ifstream(file).rdbuf();
        return all.str();
    }
    /** The message of a driver that cannot be had. */
    static std::string refusal(const std::string& path) {
        std::string error;
        EXPECT_EQ(openDriver(path, &error), nullptr);
        return error;
    }
    std::string plainFile() const {
        std::ofstream(folder() + "/file") << "text";
        return folder() + "/file";
    }
};

TEST_F(ProgramTest, helpIsPrintedOnStdoutAndUnknownOptionsGetUsageAndStatusTwo) {
    const Outcome help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("usage: binderhub", 0), 0u);
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--frobnicate"},
                                                  {"--ready-fd", "x"},
                                                  {"--ready-fd", "-1"},
                                                  {"--control-fd", "x"},
                                                  {"--control-fd", "-1"},
                                                  {"--socket"},
                                                  {"surplus"}}) {
        const Outcome bad = run(wrong);
        EXPECT_EQ(bad.status, 2) << wrong[0];
        EXPECT_NE(bad.error.find("usage: binderhub"), std::string::npos) << wrong[0];
        EXPECT_EQ(bad.out, "") << wrong[0];
    }
}

TEST_F(ProgramTest, whatIsNoSocketPairOfThisUsersControlsNoHub) {
    int stream[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, stream), 0);
    const android::base::unique_fd alone(socket(AF_UNIX, SOCK_SEQPACKET, 0));
    for (const int fd : {STDOUT_FILENO, 9999, stream[0], alone.get()}) {
        SCOPED_TRACE(fd);
        const std::string socket = folder() + "/controlled";
        const Outcome refused = run({"--socket", socket, "--control-fd", std::to_string(fd)});
        EXPECT_EQ(refused.status, 1);
        EXPECT_NE(refused.error.find("cannot be controlled through descriptor"), std::string::npos)
                << refused.error;
        EXPECT_NE(access(socket.c_str(), F_OK), 0) << "the socket is left";
    }
    close(stream[0]);
    close(stream[1]);
}

TEST_F(ProgramTest, aLiveHubsSocketIsNotTaken) {
    const Outcome second = run({"--socket", path()});
    EXPECT_EQ(second.status, 1);
    EXPECT_NE(second.error.find("a hub already listens on " + path()), std::string::npos);
    RawClient stillServed(path());
}

TEST_F(ProgramTest, whatIsNoSocketIsLeftAlone) {
    const std::string file = plainFile();
    const Outcome hub = run({"--socket", file});
    EXPECT_EQ(hub.status, 1);
    EXPECT_NE(hub.error.find("not a socket"), std::string::npos);
    EXPECT_EQ(contents(file), "text");
}

TEST_F(ProgramTest, aFolderThatIsMissingIsSaidByName) {
    const Outcome hub = run({"--socket", folder() + "/nowhere/hub"});
    EXPECT_EQ(hub.status, 1);
    EXPECT_NE(hub.error.find(folder() + "/nowhere"), std::string::npos);
}

TEST_F(ProgramTest, theSocketGoesWithTheHubAndAnyoneMayConnect) {
    struct stat status {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0666u);
    stopHub(SIGTERM);
    EXPECT_NE(access(path().c_str(), F_OK), 0);
}

TEST_F(ProgramTest, whenTheHubGoesEveryCallIsRefusedForGood) {
    PeerClient client(path());
    client.write(Commands().looper());
    client.beginRead();
    awaitStat("idle", 1);
    stopHub(SIGKILL);
    EXPECT_EQ(client.exchange({}, /*read=*/true), -ECONNREFUSED);
    EXPECT_EQ(client.exchange(Commands().call(0, 1), /*read=*/true), -ECONNREFUSED);
    EXPECT_EQ(client.setMaxThreads(1), -ECONNREFUSED);
    startHub();  // takes over the dead one's socket
    EXPECT_EQ(client.exchange(Commands().call(0, 1), /*read=*/true), -ECONNREFUSED);
}

TEST_F(ProgramTest, statsOfAHubThatIsNotThereFail) {
    stopHub(SIGTERM);
    const Outcome stats = run({"--stats", "--socket", path()});
    EXPECT_EQ(stats.status, 1);
    EXPECT_NE(stats.error.find("binderhub --socket " + path()), std::string::npos);
}

TEST_F(ProgramTest, statsAreNamedNumbers) {
    RawClient one(path());
    const Outcome stats = run({"--stats", "--socket", path()});
    EXPECT_EQ(stats.status, 0);
    EXPECT_EQ(stats.out.rfind("processes=1\n", 0), 0u) << stats.out;
}

TEST_F(ProgramTest, aDriverSaysWhatIsWrongAndWhatToStart) {
    const std::string start = "binderhub --socket ";
    EXPECT_NE(refusal(folder() + "/no").find(start + folder() + "/no"), std::string::npos);
    EXPECT_NE(refusal(plainFile()).find("not a binder hub's socket"), std::string::npos);
    stopHub(SIGKILL);
    EXPECT_NE(refusal(path()).find(start + path()), std::string::npos);
    startHub();
}

TEST_F(ProgramTest, aSocketOfSomethingElseIsCalledThat) {
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
        EXPECT_NE(error.find("not a binder hub"), std::string::npos) << error;
        EXPECT_NE(error.find(place), std::string::npos) << error;
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

TEST_F(ProgramTest, theDefaultFolderMustBeThisUsersAlone) {
    setenv("XDG_RUNTIME_DIR", folder().c_str(), 1);
    unsetenv("BINDER_DRIVER");
    ASSERT_EQ(mkdir((folder() + "/binderhub").c_str(), 0755), 0);
    const Outcome hub = run({});
    EXPECT_EQ(hub.status, 1);
    EXPECT_NE(hub.error.find("only its owner"), std::string::npos) << hub.error;
}

}  // namespace
}  // namespace binderhost::tests
