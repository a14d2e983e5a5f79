// SPDX-License-Identifier: Apache-2.0
//
// Process questions in a session whose hub vouches for uids.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <osutils/Process.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>

#include "Child.h"
#include "ControlFixture.h"

namespace binderhost::tests {
namespace {

using NQS::OS::Process;
using Status = HubControl::Status;

/** Each question in a process of its own: a process asks for its hub once. */
class ProcessTest : public ControlFixture {
protected:
    /** What a process that BINDER_DRIVER leads to the path learns of a pid. */
    static std::optional<int> uidOf(pid_t pid, const std::string& driver) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
        std::optional<int> uid;
        Child asker([&](Child::Door&) {
            setenv("BINDER_DRIVER", driver.c_str(), /*overwrite=*/1);
            uid = Process::getProcessUid(pid);
            require(write(ends[1], &uid, sizeof(uid)) == sizeof(uid), "write");
        });
        EXPECT_EQ(asker.wait(), 0);
        EXPECT_EQ(read(ends[0], &uid, sizeof(uid)), ssize_t{sizeof(uid)});
        close(ends[0]);
        close(ends[1]);
        return uid;
    }
    [[nodiscard]] std::optional<int> uidOf(pid_t pid) const { return uidOf(pid, path()); }
    static constexpr int kOthers = AssignedUids::kOthersUid;
    static int ownUid() { return static_cast<int>(geteuid()); }

    Child mChild{[](Child::Door& door) { door.await('e'); }};
};

TEST_F(ProcessTest, uidIsTheAssignedOneAndThatOfTheOthersWhereThereIsNone) {
    EXPECT_EQ(uidOf(mChild.pid()), kOthers);
    ASSERT_EQ(hub().assign(mChild.pid(), kUid), Status::Done);
    EXPECT_EQ(uidOf(mChild.pid()), int{kUid});
    EXPECT_EQ(uidOf(getpid()), kOthers);
    EXPECT_EQ(uidOf(1), kOthers) << "whoever runs it";
    ASSERT_EQ(hub().reassign(mChild.pid(), 0), Status::Done);
    EXPECT_EQ(uidOf(mChild.pid()), 0);
}

TEST_F(ProcessTest, whoAskedBeforeHearsOfTheAssignmentAndOfItsEnd) {
    Child asker([path = path(), pid = mChild.pid()](Child::Door& door) {
        setenv("BINDER_DRIVER", path.c_str(), /*overwrite=*/1);
        for (;;) {
            door.await('?');
            const std::optional<int> uid = Process::getProcessUid(pid);
            door.tell(!uid ? '-' : *uid == int{kUid} ? 'a' : *uid == kOthers ? 'o' : '!');
        }
    });
    const auto expect = [&asker](char answer) {
        asker.tell('?');
        asker.await(answer);
    };
    expect('o');
    ASSERT_EQ(hub().assign(mChild.pid(), kUid), Status::Done);
    expect('a');
    mChild.kill();
    while (!mChild.ended()) {
    }
    expect('a');
    (void)mChild.wait();
    expect('-');
}

TEST_F(ProcessTest, withoutAHubThatAssignsTheKernelAnswers) {
    ASSERT_EQ(hub().assign(mChild.pid(), kUid), Status::Done);
    const TestHub another;
    for (const std::string& driver :
         {another.path(), path() + ".missing", std::string("/dev/null"), folder()}) {
        SCOPED_TRACE(driver);
        EXPECT_EQ(uidOf(mChild.pid(), driver), ownUid());
    }
}

TEST_F(ProcessTest, livenessAndNamesStayTheKernels) {
    ASSERT_EQ(hub().assign(mChild.pid(), kUid), Status::Done);
    const pid_t pid = mChild.pid();
    EXPECT_TRUE(Process::isProcessAlive(pid));
    EXPECT_EQ(Process::getProcessName(pid, /*full=*/true),
              Process::getProcessName(getpid(), /*full=*/true));
    mChild.killAndWait();
    EXPECT_FALSE(Process::isProcessAlive(pid));
    EXPECT_EQ(Process::getProcessName(pid, /*full=*/true), "");
    EXPECT_EQ(uidOf(pid), std::nullopt);
}

TEST_F(ProcessTest, aForkedChildStillKnows) {
    ASSERT_EQ(hub().assign(mChild.pid(), kUid), Status::Done);
    Child asker([path = path(), pid = mChild.pid()](Child::Door&) {
        setenv("BINDER_DRIVER", path.c_str(), /*overwrite=*/1);
        require(Process::getProcessUid(pid) == int{kUid}, "parent");
        Child own([pid](Child::Door&) {
            require(Process::getProcessUid(pid) == int{kUid}, "child");
        });
        require(own.wait() == 0, "child");
    });
    EXPECT_EQ(asker.wait(), 0);
}

}  // namespace
}  // namespace binderhost::tests
