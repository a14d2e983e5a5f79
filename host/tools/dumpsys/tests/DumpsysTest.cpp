// SPDX-License-Identifier: Apache-2.0
//
// Dumpsys, as transcripts.
#include "tests/DumpsysFixture.h"

#include <utils/String8.h>

namespace tools {

using android::String8;
using testing::StartsWith;

namespace {

class DumpsysTranscript : public DumpsysFixture {
protected:
    /** A service whose dump is its arguments, each in brackets. */
    void addEcho(const std::string& name) {
        addService(name, [](int fd, const android::Vector<android::String16>& args) {
            std::string text;
            for (const android::String16& argument : args)
                text += std::string("[") + String8(argument).string() + "]";
            return android::base::WriteStringToFd(text + "\n", fd) ? android::OK : -errno;
        });
    }
};

}  // namespace

TEST_F(DumpsysTranscript, NamesAreListed) {
    addServiceSaying("vrfocus", "dump");
    addServiceSaying("activity", "dump");
    callMain({"-l"});
    expectDump(
            "Currently running services:\n"
            "  activity\n"
            "  vrfocus\n");
}

TEST_F(DumpsysTranscript, NamedServiceIsPrintedRaw) {
    addServiceSaying("activity", "other");
    addServiceSaying("vrfocus", "no newline at the end");
    callMain({"vrfocus"});
    expectDump("no newline at the end");
}

TEST_F(DumpsysTranscript, DumpMayHoldAnyBytes) {
    const std::string bytes("a\0\xff\r\n\x1b[0m%s", 10);
    addServiceSaying("vrfocus", bytes);
    callMain({"vrfocus"});
    expectDump(bytes);
}

TEST_F(DumpsysTranscript, WordsBehindTheNameAreTheServicesOwn) {
    addEcho("vrfocus");
    const struct {
        std::vector<std::string> arguments;
        const char* dump;
    } kRows[] = {
            {{"vrfocus"}, "\n"},
            {{"vrfocus", "json"}, "[json]\n"},
            {{"vrfocus", ""}, "[]\n"},
            {{"vrfocus", "-l", "--help", "-t", "--skip", "--"}, "[-l][--help][-t][--skip][--]\n"},
            {{"-t", "30", "vrfocus", "-t", "1"}, "[-t][1]\n"},
            {{"--", "vrfocus", "\xc3\xa4\xf0\x9f\x98\x80"}, "[\xc3\xa4\xf0\x9f\x98\x80]\n"},
    };
    for (const auto& row : kRows) {
        callMain(row.arguments);
        expectDump(row.dump);
    }
}

TEST_F(DumpsysTranscript, AllAreListedAndPrintedUnderHeadingsGivenTheArgumentForAll) {
    addServiceSaying("activity", "running\n");
    addEcho("vrfocus");
    callMain({});
    expectDump(
            "Currently running services:\n"
            "  activity\n"
            "  vrfocus\n"
            "-------------------------------------------------------------------------------\n"
            "DUMP OF SERVICE activity:\n"
            "running\n"
            "--------- DURATION of activity at TIME\n"
            "-------------------------------------------------------------------------------\n"
            "DUMP OF SERVICE vrfocus:\n"
            "[-a]\n"
            "--------- DURATION of vrfocus at TIME\n");
}

TEST_F(DumpsysTranscript, SkippedServicesAreListedAndNotPrinted) {
    for (const char* name : {"a", "b", "c"})
        addEcho(name);
    for (const auto& arguments : {std::vector<std::string>{"--skip", "a", "c"},
                                  {"--skip", "a,c"},
                                  {"-t", "30", "--skip", "c,a", "nobody"}}) {
        callMain(arguments);
        expectDump(
                "Currently running services:\n"
                "  a (skipped)\n"
                "  b\n"
                "  c (skipped)\n"
                "------------------------------------------------------------------------"
                "-------\n"
                "DUMP OF SERVICE b:\n"
                "[-a]\n"
                "--------- DURATION of b at TIME\n");
    }
}

TEST_F(DumpsysTranscript, PidIsPrintedInTheDumpsPlace) {
    addServiceSaying("vrfocus", "dump");
    const std::string pid = std::to_string(getpid()) + "\n";
    callMain({"--pid", "vrfocus"});
    expectDump(pid);
    callMain({"--pid"});
    expectDump(
            "Currently running services:\n"
            "  vrfocus\n"
            "-------------------------------------------------------------------------------\n"
            "DUMP OF SERVICE vrfocus:\n" +
            pid + "--------- DURATION of vrfocus at TIME\n");
}

TEST_F(DumpsysTranscript, NoServicesAreAnEmptyList) {
    callMain({});
    expectDump("Currently running services:\n");
    callMain({"-l"});
    expectDump("Currently running services:\n");
}

TEST_F(DumpsysTranscript, MissingServiceIsReported) {
    addServiceSaying("vrfocus", "dump");
    for (const auto& arguments :
         {std::vector<std::string>{"focus"}, {"--pid", "focus"}, {"focus", "-l"}}) {
        callMain(arguments);
        expectEnded(1, "Can't find service: focus\n");
        EXPECT_EQ(mOut, "");
    }
}

TEST_F(DumpsysTranscript, ServiceThatGoesAfterTheListingIsPassedOver) {
    mManager->add("gone", nullptr);
    addEcho("vrfocus");
    callMain({});
    expectEnded(1, "Can't find service: gone\n");
    EXPECT_EQ(withoutTimes(mOut),
              "Currently running services:\n"
              "  gone\n"
              "  vrfocus\n"
              "-------------------------------------------------------------------------------\n"
              "DUMP OF SERVICE vrfocus:\n"
              "[-a]\n"
              "--------- DURATION of vrfocus at TIME\n");
}

TEST_F(DumpsysTranscript, MissingServiceManagerIsReported) {
    mConnects = false;
    for (const auto& arguments : {std::vector<std::string>{}, {"-l"}, {"vrfocus"}}) {
        callMain(arguments);
        expectEnded(1, "no service manager\n");
        EXPECT_EQ(mOut, "");
    }
}

TEST_F(DumpsysTranscript, HelpAndWrongCommandLinesNeedNoServiceManager) {
    mConnects = false;
    callMain({"--help"});
    expectEnded(0, "");
    EXPECT_THAT(mOut, StartsWith("usage: dumpsys"));
    callMain({"--clients", "vrfocus"});
    expectEnded(2, StartsWith("dumpsys: unknown option '--clients'\nusage: dumpsys"));
    EXPECT_EQ(mOut, "");
}

}  // namespace tools
