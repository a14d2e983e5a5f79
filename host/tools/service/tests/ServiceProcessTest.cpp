// SPDX-License-Identifier: Apache-2.0
//
// Service, the program, on services in other processes.
#include <fcntl.h>

#include "tests/StackTest.h"

namespace tools {

using android::base::unique_fd;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class ServiceProcess : public StackTest {
protected:
    ServiceProcess() : StackTest("service") {}
};

}  // namespace

TEST_F(ServiceProcess, ServicesInOtherProcessesAreListedAndChecked) {
    startAll({"sample", "another"});
    call({"list"});
    expectSeen(0,
               "Found 3 services:\n"
               "0\tanother: [test.ISample]\n"
               "1\tmanager: [android.os.IServiceManager]\n"
               "2\tsample: [test.ISample]\n",
               "");
    call({"check", "sample"});
    expectSeen(0, "Service sample: found\n", "");
    call({"check", "other"});
    expectSeen(0, "Service other: not found\n", "");
}

TEST_F(ServiceProcess, ReplyOfACallIsPrinted) {
    startAll();
    call({"call", "sample", "1", "i32", "7", "s16", "hi"});
    expectSeen(0, "Result: Parcel(00000007 00000002 00690068 00000000 '........h.i.....')\n", "");
    call({"call", "sample", "3"});
    expectSeen(1, "", "service: call 3 of sample failed: UNKNOWN_TRANSACTION\n");
}

TEST_F(ServiceProcess, DescriptorOfAFileIsHandedOver) {
    startAll();
    const std::string path = mStack.folder() + "/file";
    ASSERT_TRUE(android::base::WriteStringToFile("", path));
    call({"call", "sample", "2", "fd", path});
    expectSeen(0, "Result: Parcel(NULL)\n", "");
    std::string text;
    EXPECT_TRUE(android::base::ReadFileToString(path, &text));
    EXPECT_EQ(text, "written");
    EXPECT_EQ(unlink(path.c_str()), 0);
}

TEST_F(ServiceProcess, StoppedServiceDoesNotKeepTheOthersFromBeingListed) {
    startAll();
    mStack.startServices({"another"}).stop();
    call({"list"});
    expectSeen(1,
               "Found 3 services:\n"
               "0\tanother: []\n"
               "1\tmanager: [android.os.IServiceManager]\n"
               "2\tsample: [test.ISample]\n",
               "service: another does not answer\n");
}

TEST_F(ServiceProcess, OutputThatFailsIsReported) {
    startAll();
    const unique_fd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    Surroundings around = mStack.surroundings();
    around.out = full.get();
    call({"list"}, around);
    expectSeen(1, "", "service: cannot write the output\n");
}

TEST_F(ServiceProcess, MissingHubAndServiceManagerSayWhatToStart) {
    call({"list"});
    expectSeen(1, "", HasSubstr("binderhub"));
    mStack.startHub();
    call({"list"});
    expectSeen(1, "",
               AllOf(StartsWith("service: no service manager on "),
                     EndsWith(": start servicemanager\n")));
}

}  // namespace tools
