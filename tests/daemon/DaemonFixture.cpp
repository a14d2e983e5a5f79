// SPDX-License-Identifier: Apache-2.0
//
// Daemon fixture.
#include "DaemonFixture.h"

#include <algorithm>
#include <sstream>

namespace daemontest {

DaemonFixture::DaemonFixture() {
    mHeadset->install("com.velmar.test", mHeadset->stack().toolUid(),
                      {"com.velmar.permission.READ_FOCUS_STATE",
                       "com.velmar.permission.GRANT_TRACKING_SERVICE_ACCESS_TO_DISPLAY",
                       "android.permission.DUMP"});
}

void DaemonFixture::SetUp() {
    HeadsetFixture::SetUp();
    if (HasFatalFailure()) return;
    run([this] { startGame(); });
    // Has what the daemon opens at its first need and keeps opened before anything is counted.
    (void)makeCaller()->dump({});
}

std::unique_ptr<sim::DrivenProcess> DaemonFixture::startDriven(const std::string& program,
                                                               const std::string& name) {
    auto ends = sim::LineChannel::makePair();
    if (!ends) throw sim::SessionError("no socket pair");
    sim::Launch launch;
    launch.program = program;
    launch.arguments = {name};
    launch.environment = {{"BINDER_DRIVER", hubPath()}};
    launch.logFile = mHeadset->stack().folder().file("driven.log");
    launch.passedFd = ends->second.fd();
    std::string error;
    auto process = sim::ChildProcess::start(launch, &error);
    if (process == nullptr) throw sim::SessionError(error);
    auto driven = std::make_unique<sim::DrivenProcess>("driven", std::move(process),
                                                       std::move(ends->first), nullptr);
    driven->awaitEvent("ready", patience());
    return driven;
}

std::string DaemonFixture::picture() {
    const auto caller = makeCaller();
    std::ostringstream text;
    for (const uint32_t code : {kGetImmersiveApp, kGetTopActivity, kGetForegroundApps}) {
        const Answer answer = caller->call(code);
        text << code << ": " << answer << " " << answer.result << "\n";
    }
    for (const int32_t type : {0, 1}) {
        const FocusRequest request = FocusRequest().int32(type).int32Vector(
                {mHeadset->app(sim::kShell).pid(), mHeadset->app(sim::kGame).pid()});
        text << type << ": " << caller->call(kGetClientFocusStatus, request).result << "\n";
    }
    text << caller->dump({u"json"});
    return text.str();
}

void DaemonFixture::expectHoldings(const Holdings& before) {
    Holdings now;
    const auto noMore = [&] {
        now = holdings();
        return std::all_of(now.begin(), now.end(),
                           [&](const auto& each) { return each.second <= before.at(each.first); });
    };
    EXPECT_EQ(errorOf([&] { mHeadset->awaitTrue("nothing is left over", noMore); }), "")
            << testing::PrintToString(now) << " after " << testing::PrintToString(before);
    EXPECT_LE(threadsOf(daemonPid()), kMostThreads);
    EXPECT_LE(socketsOf(daemonPid()), kMostThreads + 1) << "one a thread and the process's own";
}

void DaemonFixture::expectNoTrace(const std::function<void()>& steps) {
    const int pid = makeCaller()->servicePid();
    const std::string pictured = picture();
    const Holdings held = settledHoldings();
    steps();
    EXPECT_EQ(makeCaller()->servicePid(), pid) << mHeadset->stack().logTails();
    // First: while something is under way, or a dead process held, the picture may yet change.
    expectHoldings(held);
    EXPECT_EQ(picture(), pictured);
}

Holdings DaemonFixture::settledHoldings() {
    constexpr int kTimes = 4;
    Holdings last;
    int same = 0;
    const auto settled = [&] {
        const Holdings now = holdings();
        same = now == last && now.at("queued") == 0 ? same + 1 : 0;
        last = now;
        return same == kTimes;
    };
    EXPECT_EQ(errorOf([&] { mHeadset->awaitTrue("nothing is under way", settled); }), "")
            << testing::PrintToString(last);
    return last;
}

}  // namespace daemontest
