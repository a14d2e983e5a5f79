// SPDX-License-Identifier: Apache-2.0
// The controller's side of a control channel, against scripted children.
#include "session/DrivenProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "session/SessionError.h"

namespace sim {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr milliseconds kLong(20'000);
constexpr milliseconds kShort(20);

/** A shell that reads requests from descriptor 3 and answers as its script says. */
std::unique_ptr<DrivenProcess> scripted(const std::string& script, StopSignals* stops = nullptr) {
    auto ends = LineChannel::makePair();
    Launch launch;
    launch.program = "/bin/sh";
    launch.arguments = {"sh", "-c", script};
    launch.passedFd = ends->second.fd();
    std::string error;
    auto child = ChildProcess::start(launch, &error);
    EXPECT_NE(child, nullptr) << error;
    return std::make_unique<DrivenProcess>("script", std::move(child), std::move(ends->first),
                                           stops);
}

Json::Value ping() {
    Json::Value request(Json::objectValue);
    request["op"] = "ping";
    return request;
}

std::string errorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const SessionError& error) {
        return error.what();
    }
    return "no error";
}

TEST(DrivenProcessTest, anAnswerBelongsToTheRequestWithItsId) {
    const auto process = scripted(
            "read line <&3; echo '{\"id\":0}' >&3; echo '{\"id\":1,\"x\":5}' >&3; cat <&3 "
            ">/dev/null");
    EXPECT_EQ(process->request(ping(), kLong)["x"], 5);
}

TEST(DrivenProcessTest, anAnswerThatComesTooLateIsDroppedByTheNextRequest) {
    const auto process = scripted(
            "read a <&3; read b <&3; echo '{\"id\":1,\"x\":1}' >&3; echo '{\"id\":2,\"x\":2}' >&3;"
            "cat <&3 >/dev/null");
    EXPECT_THAT(errorOf([&] { process->request(ping(), kShort); }),
                HasSubstr("gave no sign in time: awaited an answer to ping"));
    EXPECT_EQ(process->request(ping(), kLong)["x"], 2);
}

TEST(DrivenProcessTest, itsEndIsSaidWithItsExitStatus) {
    const auto process = scripted("read line <&3; exec 3<&-; exec sleep 1000");
    EXPECT_THAT(errorOf([&] { process->request(ping(), kLong); }),
                HasSubstr("script has ended (signal 9)"));
}

TEST(DrivenProcessTest, anErrorAnswerIsAnError) {
    const auto process = scripted(
            "read line <&3; echo '{\"id\":1,\"error\":\"never heard of it\"}' >&3;"
            "cat <&3 >/dev/null");
    EXPECT_EQ(errorOf([&] { process->request(ping(), kLong); }), "script: never heard of it");
}

TEST(DrivenProcessTest, nonsenseIsAnError) {
    const auto process = scripted("echo nonsense >&3; cat <&3 >/dev/null");
    EXPECT_THAT(errorOf([&] { process->awaitEvent("ready", kLong); }), HasSubstr("no JSON"));
}

TEST(DrivenProcessTest, otherEventsAreNotTheAwaitedOne) {
    const auto process = scripted(
            "echo '{\"event\":\"odd\"}' >&3; echo '{\"event\":\"ready\"}' >&3;"
            "cat <&3 >/dev/null");
    process->awaitEvent("ready", kLong);
}

TEST(DrivenProcessTest, aStopSignalEndsTheWait) {
    StopSignals stops;
    const auto process = scripted("cat <&3 >/dev/null", &stops);
    raise(SIGTERM);
    try {
        process->request(ping(), kLong);
        FAIL() << "nothing stopped it";
    } catch (const SessionStopped& stopped) {
        EXPECT_EQ(stopped.signal(), SIGTERM);
    }
    EXPECT_EQ(stops.take(), 0) << "it was taken";
}

}  // namespace
}  // namespace sim
