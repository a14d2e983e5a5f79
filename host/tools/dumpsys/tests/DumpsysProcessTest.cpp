// SPDX-License-Identifier: Apache-2.0
//
// Dumpsys, the program, on services in other processes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/SampleStack.h"

namespace tools {

using android::base::unique_fd;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class DumpsysProcess : public testing::Test {
protected:
    void startAll() {
        mStack.startHub();
        mStack.startServiceManager();
    }

    void call(const std::vector<std::string>& arguments) {
        std::vector<std::string> words{"dumpsys"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        mSeen = mStack.run(words);
    }
    void expectSeen(int status, const testing::Matcher<std::string>& out,
                    const testing::Matcher<std::string>& err) {
        EXPECT_EQ(mSeen.status, status);
        EXPECT_THAT(mSeen.out, out);
        EXPECT_THAT(mSeen.err, err);
    }

    SampleStack mStack;
    Transcript mSeen;
};

}  // namespace

TEST_F(DumpsysProcess, ServiceInAnotherProcessIsListedAndDumped) {
    startAll();
    const ToolProcess& service = mStack.startServices({"sample"});
    call({"-l"});
    expectSeen(0, "Currently running services:\n  manager\n  sample\n", "");
    call({"sample", "json", "-l"});
    expectSeen(0, "json\n-l\n", "");
    call({"--pid", "sample"});
    expectSeen(0, std::to_string(service.pid()) + "\n", "");
    call({"--skip", "manager"});
    expectSeen(0,
               AllOf(StartsWith("Currently running services:\n  manager (skipped)\n  sample\n---"),
                     HasSubstr("DUMP OF SERVICE sample:\n-a\n---------")),
               "");
    call({"other"});
    expectSeen(1, "", "Can't find service: other\n");
}

TEST_F(DumpsysProcess, LargeDumpArrivesWhole) {
    startAll();
    mStack.startServices({"sample"});
    call({"sample", "big", "24"});
    expectSeen(0, testing::SizeIs(24 * 1024 * 1024), "");
}

TEST_F(DumpsysProcess, RefusedDumpIsReported) {
    startAll();
    mStack.startServices({"sample"});
    call({"sample", "refuse"});
    expectSeen(1, "", "Error with service 'sample' while dumping: PERMISSION_DENIED\n");
}

TEST_F(DumpsysProcess, ServiceThatDiesInMidDumpIsReportedWithWhatItSaid) {
    startAll();
    mStack.startServices({"sample"});
    call({"sample", "die"});
    expectSeen(1, "begun\n", "Error with service 'sample' while dumping: DEAD_OBJECT\n");
}

TEST_F(DumpsysProcess, StoppedServiceIsGivenUpAndAnswersAgainAfterwards) {
    startAll();
    const ToolProcess& service = mStack.startServices({"sample"});
    service.stop();
    call({"-T", "100", "sample"});
    expectSeen(1, "\n*** SERVICE 'sample' DUMP TIMEOUT (100ms) EXPIRED ***\n\n", "");
    call({"-T", "100", "--pid", "sample"});
    expectSeen(1, "\n*** SERVICE 'sample' DUMP TIMEOUT (100ms) EXPIRED ***\n\n", "");
    service.goOn();
    call({"sample", "json"});
    expectSeen(0, "json\n", "");
}

TEST_F(DumpsysProcess, ReaderThatGoesAwayHarmsNeitherTheToolNorTheService) {
    startAll();
    mStack.startServices({"sample"});
    unique_fd readEnd;
    unique_fd writeEnd;
    ASSERT_TRUE(android::base::Pipe(&readEnd, &writeEnd));
    readEnd.reset();
    Surroundings around = mStack.surroundings();
    around.out = writeEnd.get();
    const Transcript seen = runTool({"dumpsys", "sample", "big", "24"}, around);
    EXPECT_EQ(seen.status, 1);
    EXPECT_EQ(seen.err, "");
    call({"sample", "json"});
    expectSeen(0, "json\n", "");
}

TEST_F(DumpsysProcess, ClosedOutputIsNotTakenForTheDrivers) {
    startAll();
    mStack.startServices({"sample"});
    Surroundings around = mStack.surroundings();
    around.closeOut = true;
    const Transcript seen = runTool({"dumpsys"}, around);
    EXPECT_EQ(seen.status, 1);
    EXPECT_EQ(seen.err, "dumpsys: cannot write the output: Bad file descriptor\n");
}

TEST_F(DumpsysProcess, MissingHubAndServiceManagerSayWhatToStart) {
    call({"-l"});
    expectSeen(1, "", HasSubstr("binderhub"));
    mStack.startHub();
    call({"-l"});
    expectSeen(1, "",
               AllOf(StartsWith("dumpsys: no service manager on "),
                     EndsWith(": start servicemanager\n")));
}

TEST_F(DumpsysProcess, WrongCommandLinesGetTheUsage) {
    call({"--thread", "sample"});
    expectSeen(2, "", StartsWith("dumpsys: unknown option '--thread'\nusage: dumpsys"));
    call({"--help"});
    expectSeen(0, StartsWith("usage: dumpsys"), "");
}

}  // namespace tools
