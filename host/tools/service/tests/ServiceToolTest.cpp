// SPDX-License-Identifier: Apache-2.0
//
// Service tool, as transcripts.
#include "service/ServiceTool.h"

#include "../../../testing/ToolTranscript.h"
#include "tests/FakeService.h"
#include "tests/FakeServiceManager.h"

namespace tools {

using android::Parcel;
using android::sp;
using android::String16;
using testing::StartsWith;

namespace {

class ServiceToolTranscript : public hosttesting::ToolTranscript {
protected:
    void add(const std::string& name, FakeService::Behaviour behaviour) {
        mManager->add(name, new FakeService(std::move(behaviour)));
    }

    void callMain(const std::vector<std::string>& arguments) {
        const auto connect = [this](std::ostream& why) -> sp<android::IServiceManager> {
            if (!mConnects) why << "no service manager\n";
            return mConnects ? mManager : nullptr;
        };
        transcribe([&](auto& out, auto& err) { return serviceMain(arguments, connect, out, err); });
    }

    const sp<FakeServiceManager> mManager{new FakeServiceManager};
    bool mConnects = true;
};

}  // namespace

TEST_F(ServiceToolTranscript, ServicesAreListedWithTheirDescriptors) {
    callMain({"list"});
    expectPrinted("Found 0 services:\n");
    add("vrfocus", {.descriptor = "test.IFocus"});
    add("activity", {.descriptor = ""});
    mManager->add("gone", nullptr);
    callMain({"list"});
    expectPrinted(
            "Found 3 services:\n"
            "0\tactivity: []\n"
            "1\tgone: []\n"
            "2\tvrfocus: [test.IFocus]\n");
}

TEST_F(ServiceToolTranscript, CallCarriesTheTokenAndTheValuesAndPrintsTheReply) {
    uint32_t seenCode = 0;
    bool tokenMatches = false;
    int32_t number = 0;
    String16 text;
    add("vrfocus", {.descriptor = "test.IFocus",
                    .answer = [&](uint32_t code, const Parcel& data, Parcel* reply) {
                        seenCode = code;
                        tokenMatches = data.enforceInterface(String16("test.IFocus"));
                        number = data.readInt32();
                        text = data.readString16();
                        reply->writeNoException();
                        return reply->writeString16(String16("answer"));
                    }});
    callMain({"call", "vrfocus", "110", "i32", "-7", "s16", "abc"});
    expectPrinted(
            "Result: Parcel(\n"
            "  0x00000000: 00000000 00000006 006e0061 00770073 '........a.n.s.w.'\n"
            "  0x00000010: 00720065 00000000                   'e.r.....        ')\n");
    EXPECT_EQ(seenCode, 110u);
    EXPECT_TRUE(tokenMatches);
    EXPECT_EQ(number, -7);
    EXPECT_EQ(text, String16("abc"));
}

TEST_F(ServiceToolTranscript, FailedCallIsReported) {
    add("vrfocus", {});
    callMain({"call", "vrfocus", "9"});
    expectFailed(1, "service: call 9 of vrfocus failed: UNKNOWN_TRANSACTION\n");
    callMain({"call", "focus", "9"});
    expectFailed(1, "service: Service focus does not exist\n");
}

TEST_F(ServiceToolTranscript, CallIsNotMadeWhenAFileIsMissing) {
    bool called = false;
    add("vrfocus", {.answer = [&called](uint32_t, const Parcel&, Parcel*) {
            called = true;
            return android::OK;
        }});
    callMain({"call", "vrfocus", "1", "fd", "/nowhere/file"});
    expectFailed(1, "service: fd /nowhere/file: NAME_NOT_FOUND\n");
    EXPECT_FALSE(called);
}

TEST_F(ServiceToolTranscript, MissingServiceManagerIsReported) {
    mConnects = false;
    for (const auto& arguments :
         {std::vector<std::string>{"list"}, {"check", "x"}, {"call", "x", "1"}}) {
        callMain(arguments);
        expectFailed(1, "no service manager\n");
    }
}

TEST_F(ServiceToolTranscript, HelpAndWrongCommandLinesNeedNoServiceManager) {
    mConnects = false;
    callMain({"--help"});
    expectPrinted(StartsWith("usage: service list"));
    const struct {
        std::vector<std::string> arguments;
        const char* message;
    } kRows[] = {
            {{}, "what to do?"},
            {{"start"}, "unknown command 'start'"},
            {{"--list"}, "unknown command '--list'"},
            {{"list", "x"}, "unknown argument 'x'"},
            {{"check"}, "check wants a name"},
            {{"check", "x", "y"}, "unknown argument 'y'"},
            {{"call"}, "call wants a name"},
            {{"call", "x"}, "call wants a code"},
            {{"call", "x", "1", "i32"}, "i32 wants a 32-bit integer"},
    };
    for (const auto& row : kRows) {
        callMain(row.arguments);
        expectFailed(2, StartsWith(std::string("service: ") + row.message + "\nusage: service"));
    }
}

}  // namespace tools
