// SPDX-License-Identifier: Apache-2.0
// The dump as people and their tools ask for it, and readers that go away.
#include <android-base/file.h>
#include <binder/IBinder.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <json/reader.h>

#include <cstring>

#include "DaemonFixture.h"
#include "tests/ToolProcess.h"

namespace daemontest {
namespace {

using android::IBinder;

using android::base::unique_fd;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kHelp =
        "Usage: \n"
        "  dumpsys vrfocus [-a]\tPrints human readable state\n"
        "  dumpsys vrfocus json\tPrints state in json format\n";

class DumpTest : public DaemonFixture {
protected:
    tools::Transcript dumpsys(std::vector<std::string> arguments, int out = -1) {
        arguments.insert(arguments.begin(), {"dumpsys", "vrfocus"});
        return tools::runTool(arguments, {.driver = hubPath(), .out = out});
    }
};

TEST_F(DumpTest, textNamesTheStateWithAndWithoutTheArgument) {
    for (const auto& arguments : {std::vector<std::string>{}, {"-a"}}) {
        const tools::Transcript told = dumpsys(arguments);
        EXPECT_EQ(told.status, 0) << told.err;
        EXPECT_THAT(told.out, StartsWith("=== VrFocusService ===\n\n=== Clients ===\n"));
        EXPECT_THAT(told.out, HasSubstr("\n=== Current State ===\n"));
        EXPECT_THAT(told.out, HasSubstr(sim::kGame));
    }
}

TEST_F(DumpTest, jsonIsOneObject) {
    const tools::Transcript told = dumpsys({"json"});
    EXPECT_EQ(told.status, 0) << told.err;
    Json::Value dump;
    std::string errors;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    ASSERT_TRUE(reader->parse(told.out.data(), told.out.data() + told.out.size(), &dump, &errors))
            << errors << told.out;
    EXPECT_EQ(dump.getMemberNames(), std::vector<std::string>{"focusPolicy"})
            << "no type had a listener yet";
    EXPECT_THAT(told.out, HasSubstr(sim::kGame));
}

TEST_F(DumpTest, wrongArgumentsAreAnsweredByTheUsage) {
    const struct {
        std::vector<std::string> arguments;
        std::string error;
    } kRows[] = {
            {{"JSON"}, "Error: unexpected argument: JSON\n"},
            {{"-A"}, "Error: unexpected argument: -A\n"},
            {{""}, "Error: unexpected argument: \n"},
            {{"%s%n"}, "Error: unexpected argument: %s%n\n"},
            {{"json", "json"}, "Error: unexpected number of arguments.\n"},
            {{"-a", "x", "y"}, "Error: unexpected number of arguments.\n"},
    };
    for (const auto& [arguments, error] : kRows) {
        const tools::Transcript told = dumpsys(arguments);
        EXPECT_EQ(told.status, 0) << told.err;
        EXPECT_EQ(told.out, error + kHelp);
    }
}

/** Both the tool's output and the daemon's own descriptor. */
TEST_F(DumpTest, aReaderThatHasGoneDoesNotEndTheDaemon) {
    expectNoTrace([this] {
        for (const char* argument : {"-a", "json", "nonsense"}) {
            unique_fd readEnd;
            unique_fd writeEnd;
            ASSERT_TRUE(android::base::Pipe(&readEnd, &writeEnd, O_CLOEXEC));
            readEnd.reset();
            (void)dumpsys({argument}, writeEnd.get());
            const auto caller = makeCaller();
            const std::u16string wide(argument, argument + std::strlen(argument));
            EXPECT_EQ(caller->call(IBinder::DUMP_TRANSACTION,
                                   FocusCaller::dumpRequest(writeEnd.get(), {wide})),
                      Answer());
        }
    });
}

TEST_F(DumpTest, aDumpMayBeAskedForIntoAnythingAndLeavesNoDescriptor) {
    expectNoTrace([this] {
        const auto caller = makeCaller();
        const unique_fd readOnly(open("/dev/null", O_RDONLY | O_CLOEXEC));
        const unique_fd folder(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        for (int round = 0; round < 50; ++round) {
            for (const unique_fd* each : {&readOnly, &folder}) {
                EXPECT_EQ(caller->call(IBinder::DUMP_TRANSACTION,
                                       FocusCaller::dumpRequest(each->get(), {u"json"})),
                          Answer());
            }
            // An argument that does not end.
            const FocusRequest whole = FocusCaller::dumpRequest(readOnly.get(), {u"json"});
            EXPECT_EQ(caller->call(IBinder::DUMP_TRANSACTION, whole.cut(whole.size() - 4)),
                      failed(android::BAD_VALUE));
        }
    });
}

}  // namespace
}  // namespace daemontest
