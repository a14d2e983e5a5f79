// SPDX-License-Identifier: Apache-2.0
// The dump as people and their tools ask for it, and readers that go away.
#include <android-base/file.h>
#include <binder/IBinder.h>
#include <fcntl.h>
#include <gmock/gmock.h>

#include <cstring>
#include <stdexcept>
#include <utility>

#include "DaemonFixture.h"
#include "tests/ToolProcess.h"

namespace daemontest {
namespace {

using android::IBinder;

using android::base::unique_fd;
using testing::HasSubstr;
using testing::StartsWith;

class DumpTest : public DaemonFixture {
protected:
    tools::Transcript dumpsys(std::vector<std::string> arguments, int out = -1) {
        arguments.insert(arguments.begin(), {"dumpsys", "vrfocus"});
        return tools::runTool(arguments, {.driver = hubPath(), .out = out});
    }
};

TEST_F(DumpTest, theToolShowsEachFormAndTheUsage) {
    const std::pair<const char*, testing::Matcher<std::string>> rows[] = {
            {"-a", testing::AllOf(StartsWith("=== VrFocusService ===\n"), HasSubstr(sim::kGame))},
            {"json", testing::AllOf(StartsWith("{\n"), HasSubstr(sim::kGame))},
            {"-A", StartsWith("Error: unexpected argument: -A\nUsage: \n")},
    };
    for (const auto& [argument, matcher] : rows) {
        const tools::Transcript told = dumpsys({argument});
        EXPECT_EQ(told.status, 0) << told.err;
        EXPECT_THAT(told.out, matcher);
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

/** Both ends of a pipe that takes not a byte more. */
class FullPipe {
public:
    FullPipe() {
        if (!android::base::Pipe(&mReader, &mWriter, O_CLOEXEC)) throw std::runtime_error("pipe");
        const int size = fcntl(mWriter.get(), F_SETPIPE_SZ, 4096);
        if (size < 0) throw std::runtime_error("pipe size");
        mFilling.assign(static_cast<size_t>(size), '#');
        if (!android::base::WriteStringToFd(mFilling, mWriter)) throw std::runtime_error("fill");
    }
    int writer() const { return mWriter.get(); }
    /** What was written behind the filling, until nobody can write any more. */
    std::string read() {
        mWriter.reset();
        std::string text;
        if (!android::base::ReadFdToString(mReader, &text)) throw std::runtime_error("read");
        EXPECT_THAT(text, StartsWith(mFilling));
        return text.substr(mFilling.size());
    }

private:
    unique_fd mReader, mWriter;
    std::string mFilling;
};

/** Each kind of work of the daemon, done while others wait for their readers. */
class StuckDumpTest : public DumpTest {
protected:
    /** From the first line to the last; what stands between may change meanwhile. */
    static void expectWhole(const std::string& dump) {
        EXPECT_THAT(dump, StartsWith("=== VrFocusService ===\n"));
        EXPECT_THAT(dump, testing::EndsWith("\n = Other = \n  Permissive: false\n"));
    }
    void expectAtWork() {
        const auto caller = makeCaller();
        const FocusRequest listener = FocusRequest().node(0x1000);
        EXPECT_TRUE(isRefused(caller->call(kRegisterVrTopActivityListener, listener), 0));
        caller->raw().write(binderhost::tests::Commands().looper());
        for (const int state : {sim::Headset::kStopping, sim::Headset::kVisible}) {
            mHeadset->reportXrSession(sim::kGame, state);
            const auto notice = caller->raw().expect(BR_TRANSACTION);
            caller->raw().write(binderhost::tests::Commands().freeBuffer(notice));
        }
        // Else the next of this pid would be refused until the daemon hears of this one's death.
        EXPECT_TRUE(isRefused(caller->call(kUnregisterVrTopActivityListener), 0));
        EXPECT_TRUE(makeCaller()->isAnswered());
        const tools::Transcript told = dumpsys({});
        EXPECT_EQ(told.status, 0) << told.err;
        EXPECT_THAT(told.out, HasSubstr(sim::kGame));
    }
};

/** The tool itself takes what the daemon says: the daemon does not even notice. */
TEST_F(StuckDumpTest, anyNumberOfToolsWithoutAReaderHarmNobodyAndSayAllWhenTheyAreRead) {
    run([this] {
        constexpr int kTools = 20;
        expectAtWork();
        std::vector<std::unique_ptr<FullPipe>> pipes;
        std::vector<std::unique_ptr<tools::ToolProcess>> stuck;
        for (int i = 0; i < kTools; ++i) {
            pipes.push_back(std::make_unique<FullPipe>());
            const tools::Surroundings around{.driver = hubPath(), .out = pipes.back()->writer()};
            stuck.push_back(std::make_unique<tools::ToolProcess>(
                    std::vector<std::string>{"dumpsys", "vrfocus"}, around));
        }
        expectAtWork();
        for (const auto& pipe : pipes)
            expectWhole(pipe->read());
        for (const auto& tool : stuck)
            EXPECT_EQ(tool->wait(), 0);
    });
}

/** Each holds a thread of the daemon's pool, but no lock: fewer than the pool has harm nobody. */
TEST_F(StuckDumpTest, aDaemonThatWaitsForReadersGoesOnAndThenSaysAll) {
    run([this] {
        constexpr int kStuck = 10;
        expectAtWork();
        const Holdings before = settledHoldings();
        std::vector<std::unique_ptr<FullPipe>> pipes;
        std::vector<std::unique_ptr<FocusCaller>> callers;
        for (int i = 0; i < kStuck; ++i) {
            pipes.push_back(std::make_unique<FullPipe>());
            callers.push_back(makeCaller());
            callers.back()->begin(IBinder::DUMP_TRANSACTION,
                                  FocusCaller::dumpRequest(pipes.back()->writer(), {}).payload());
        }
        // The report in memory and the caller's pipe.
        mHeadset->awaitTrue("all wait for their readers", [&] {
            return holdings().at("files") == before.at("files") + 2 * kStuck;
        });
        expectAtWork();
        for (const auto& pipe : pipes)
            expectWhole(pipe->read());
        for (const auto& caller : callers)
            EXPECT_EQ(caller->finish(), Answer());
        callers.clear();
        expectHoldings(before);
    });
}

}  // namespace
}  // namespace daemontest
