// SPDX-License-Identifier: Apache-2.0
//
// Dumpsys, the program, on services in other processes.
#include "tests/StackTest.h"

namespace tools {

using android::base::unique_fd;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class DumpsysProcess : public StackTest {
protected:
    DumpsysProcess() : StackTest("dumpsys") {}
};

}  // namespace

TEST_F(DumpsysProcess, ServiceInAnotherProcessIsListedAndDumped) {
    const ToolProcess& service = startAll();
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

TEST_F(DumpsysProcess, RefusalAndDeathInMidDumpAreReportedBesideWhatWasSaid) {
    startAll();
    call({"sample", "refuse"});
    expectSeen(1, "", "Error with service 'sample' while dumping: PERMISSION_DENIED\n");
    call({"sample", "die"});
    expectSeen(1, "begun\n", "Error with service 'sample' while dumping: DEAD_OBJECT\n");
}

TEST_F(DumpsysProcess, StoppedServiceIsGivenUpAndAnswersAgainAfterwards) {
    const ToolProcess& service = startAll();
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
    unique_fd readEnd;
    unique_fd writeEnd;
    ASSERT_TRUE(android::base::Pipe(&readEnd, &writeEnd));
    readEnd.reset();
    Surroundings around = mStack.surroundings();
    around.out = writeEnd.get();
    call({"sample", "big", "24"}, around);
    expectSeen(1, "", "");
    call({"sample", "json"});
    expectSeen(0, "json\n", "");
}

TEST_F(DumpsysProcess, ClosedOutputIsNotTakenForTheDrivers) {
    startAll();
    Surroundings around = mStack.surroundings();
    around.closeOut = true;
    call({}, around);
    expectSeen(1, "", "dumpsys: cannot write the output: Bad file descriptor\n");
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

}  // namespace tools
