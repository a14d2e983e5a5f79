// SPDX-License-Identifier: Apache-2.0
//
// Service dump: who may, which arguments, and the whole text of each form.
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utils/Errors.h>

#include <csignal>
#include <string>
#include <vector>

#include "DumpText.h"
#include "FakeListeners.h"
#include "ServiceWorld.h"

namespace NQS::OS {
namespace {

using android::base::unique_fd;
using Calls = std::vector<std::string>;

constexpr int kPid = 5'000'001;
constexpr char kHelp[] =
        "Usage: \n"
        "  dumpsys vrfocus [-a]\tPrints human readable state\n"
        "  dumpsys vrfocus json\tPrints state in json format\n";
constexpr char kEmptyText[] =
        "=== VrFocusService ===\n"
        "\n=== Clients ===\n"
        "\n=== Current State ===\n";
constexpr char kEmptyJson[] = "{\n\t\"focusPolicy\" : \n\t{\n\t\t\"from\" : \"policy\"\n\t}\n}\n\n";

class ServiceDumpTest : public ::testing::Test {
protected:
    std::string dump(const std::vector<std::string>& words) {
        return dumpText([&](int fd) { mStatus = dumpTo(fd, words); });
    }

    android::status_t dumpTo(int fd, const std::vector<std::string>& words) {
        android::Vector<android::String16> args;
        for (const std::string& word : words)
            args.push_back(android::String16(word.data(), word.size()));
        const CallAs caller(mUid, kPid);
        return mWorld.service->dump(fd, args);
    }

    void listen(int pid, int type) {
        const CallAs caller(mUid, pid);
        bool result = false;
        mWorld.service->registerVrFocusListener(new FakeFocusListener("f", mWorld.log), type,
                                                &result);
        EXPECT_TRUE(result);
    }

    ServiceWorld mWorld;
    int mUid = mWorld.user(kDumpPermission, kReadFocus);
    android::status_t mStatus = 1;
};

TEST_F(ServiceDumpTest, WithoutThePermissionNothingIsWritten) {
    mUid = mWorld.user(kReadFocus, kGrantAccess);
    for (const std::vector<std::string>& words : {Calls{}, {"json"}, {"bad"}, {"json", "-a"}}) {
        EXPECT_EQ(dump(words), "");
        EXPECT_EQ(mStatus, -1);
    }
    EXPECT_EQ(mWorld.log->take(), Calls());
}

TEST_F(ServiceDumpTest, ArgumentsChooseTheFormOrAreRefusedOnTheDescriptor) {
    const std::string text = kEmptyText;
    const std::string unexpected = "Error: unexpected argument: ";
    const std::string number = "Error: unexpected number of arguments.\n";
    const struct {
        std::vector<std::string> words;
        std::string answer;
    } kRows[] = {
            {{}, text + "(policy, 0 arguments)\n"},
            {{"-a"}, text + "(policy, 1 arguments)\n"},
            {{"json"}, kEmptyJson},
            {{"JSON"}, unexpected + "JSON\n" + kHelp},
            {{"-a "}, unexpected + "-a \n" + kHelp},
            // A NUL counts in the comparison and ends what is shown.
            {{std::string("json\0", 5)}, unexpected + "json\n" + kHelp},
            {{std::string("-a\0x", 4)}, unexpected + "-a\n" + kHelp},
            {{""}, unexpected + "\n" + kHelp},
            {{"%s%n"}, unexpected + "%s%n\n" + kHelp},
            {{"json", "-a"}, number + kHelp},
            {{"x", "y", "z"}, number + kHelp},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(dump(row.words), row.answer);
        EXPECT_EQ(mStatus, 0);
    }
}

TEST_F(ServiceDumpTest, TypesAndPidsAreListedAscendingAndATypeAskedForStays) {
    listen(kPid + 1, 1);
    listen(kPid, 1);
    bool result = false;
    const android::sp<FakeFocusListener> listener = new FakeFocusListener("f", mWorld.log);
    {
        // What is refused makes none.
        const CallAs stranger(mWorld.user(kDumpPermission), kPid);
        mWorld.service->registerVrFocusListener(listener, 0, &result);
        mWorld.service->unregisterVrFocusListener(0, &result);
    }
    EXPECT_EQ(dump({}).find("Type: 0"), std::string::npos);
    {
        // Asking for a type's listener makes its list, even when there is none.
        const CallAs caller(mUid, kPid);
        mWorld.service->unregisterVrFocusListener(0, &result);
        mWorld.service->registerVrFocusListener(listener, 2, &result);
        // Of top activity listeners nothing is said.
        mWorld.service->registerVrTopActivityListener(new FakeTopActivityListener("t", mWorld.log),
                                                      &result);
        EXPECT_TRUE(result);
    }
    EXPECT_EQ(dump({}),
              "=== VrFocusService ===\n"
              "\n=== Clients ===\n"
              " Type: 0 Num: 0 PIDs:\n"
              " Type: 1 Num: 2 PIDs:\n"
              "  5000001\n"
              "  5000002\n"
              "\n=== Current State ===\n"
              "(policy, 0 arguments)\n");
    EXPECT_EQ(dump({"json"}), R"({
	"focusPolicy" : 
	{
		"from" : "policy"
	},
	"types" : 
	[
		{
			"listeners" : [],
			"size" : 0,
			"type" : 0
		},
		{
			"listeners" : 
			[
				5000001,
				5000002
			],
			"size" : 2,
			"type" : 1
		}
	]
}

)");
}

TEST_F(ServiceDumpTest, AReaderThatHasGoneIsNoFailure) {
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const unique_fd writer(ends[1]);
    close(ends[0]);
    for (const int fd : {writer.get(), -1}) {
        for (const std::vector<std::string>& words : {Calls{}, {"json"}, {"bad"}}) {
            EXPECT_EQ(dumpTo(fd, words), 0);
        }
    }
    EXPECT_EQ(dump({"json"}), kEmptyJson);
}

}  // namespace
}  // namespace NQS::OS
