// SPDX-License-Identifier: Apache-2.0
//
// Service, the program, on services in other processes.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/SampleStack.h"

namespace tools {

using android::base::unique_fd;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class ServiceProcess : public testing::Test {
protected:
    void startAll() {
        mStack.startHub();
        mStack.startServiceManager();
    }

    void call(const std::vector<std::string>& arguments) {
        std::vector<std::string> words{"service"};
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

TEST_F(ServiceProcess, ServicesInOtherProcessesAreListedAndChecked) {
    startAll();
    mStack.startServices({"sample", "another"});
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
    mStack.startServices({"sample"});
    call({"call", "sample", "1", "i32", "7", "s16", "hi"});
    expectSeen(0, "Result: Parcel(00000007 00000002 00690068 00000000 '........h.i.....')\n", "");
    call({"call", "sample", "3"});
    expectSeen(1, "", "service: call 3 of sample failed: UNKNOWN_TRANSACTION\n");
}

TEST_F(ServiceProcess, DescriptorOfAFileIsHandedOver) {
    startAll();
    mStack.startServices({"sample"});
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
    mStack.startServices({"sample"});
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
    const Transcript seen = runTool({"service", "list"}, around);
    EXPECT_EQ(seen.status, 1);
    EXPECT_EQ(seen.err, "service: cannot write the output\n");
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
