// SPDX-License-Identifier: Apache-2.0
// The session's folder: who may enter it, and that nothing of it is left.
#include "process/SessionFolder.h"

#include <android-base/file.h>
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

namespace sim {
namespace {

TEST(SessionFolderTest, onlyItsOwnerMayEnterBeThatRoot) {
    std::string error;
    const auto folder = SessionFolder::make(&error);
    ASSERT_NE(folder, nullptr) << error;
    struct stat status {};
    ASSERT_EQ(stat(folder->path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
}

/** A process of that user, for root to start. */
pid_t forkAs(uid_t uid, const std::function<int()>& run) {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    const bool isUser = setgroups(0, nullptr) == 0 && setgid(uid) == 0 && setuid(uid) == 0;
    _exit(isUser ? run() : 100);
}

int exitStatusOf(pid_t pid) {
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) ? WEXITSTATUS(status) : 101;
}

/** Whether the owner reaches what is in their folder, and no other user does. */
void expectOthersAreKeptOutOfAFolderOf(uid_t owner) {
    constexpr uid_t kOther = 65533;
    int told[2], held[2];
    ASSERT_EQ(pipe2(told, O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(held, O_CLOEXEC), 0);
    const pid_t maker = forkAs(owner, [&] {
        close(held[1]);
        unsetenv("TMPDIR");  // may be root's alone
        std::string error;
        const auto folder = SessionFolder::make(&error);
        if (folder == nullptr) return 1;
        const std::string file = folder->file("open");
        std::ofstream(file) << "text";
        if (chmod(file.c_str(), 0666) != 0) return 2;
        char end = 0;
        const auto size = static_cast<ssize_t>(file.size());
        return write(told[1], file.data(), file.size()) == size && read(held[0], &end, 1) == 0 ? 0
                                                                                               : 3;
    });
    close(told[1]);
    char path[PATH_MAX] = {};
    EXPECT_GT(read(told[0], path, sizeof(path) - 1), 0);
    const auto reach = [&path] { return open(path, O_RDWR | O_CLOEXEC) < 0 ? errno : 0; };
    EXPECT_EQ(exitStatusOf(forkAs(owner, reach)), 0);
    EXPECT_EQ(exitStatusOf(forkAs(kOther, reach)), EACCES);
    close(held[1]);
    EXPECT_EQ(exitStatusOf(maker), 0);
    close(told[0]);
    close(held[0]);
}

TEST(SessionFolderTest, whatIsInItNoOtherUserReaches) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be two users";
    for (const uid_t owner : {0, 65534}) {
        SCOPED_TRACE(owner);
        expectOthersAreKeptOutOfAFolderOf(owner);
    }
}

TEST(SessionFolderTest, itGoesWithAllThatIsInIt) {
    std::string error;
    auto folder = SessionFolder::make(&error);
    ASSERT_NE(folder, nullptr) << error;
    const std::string path = folder->path();
    std::filesystem::create_directories(folder->file("a/b"));
    std::ofstream(folder->file("a/b/c")) << "text";
    folder.reset();
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(SessionFolderTest, itIsMadeInTheFolderForTemporaryFilesWhereThatIsOne) {
    TemporaryDir folder;
    const char* before = getenv("TMPDIR");
    const std::string restored = before == nullptr ? "/tmp" : before;
    std::string error;
    for (const std::string& wanted : {std::string(folder.path), folder.path + std::string("/no")}) {
        setenv("TMPDIR", wanted.c_str(), 1);
        const auto session = SessionFolder::make(&error);
        setenv("TMPDIR", restored.c_str(), 1);
        ASSERT_NE(session, nullptr) << error;
        const bool inside = session->path().starts_with(folder.path);
        EXPECT_EQ(inside, wanted == folder.path) << session->path();
    }
}

TEST(SessionFolderTest, twoSessionsNeverShareOne) {
    std::string error;
    const auto one = SessionFolder::make(&error);
    const auto two = SessionFolder::make(&error);
    ASSERT_TRUE(one != nullptr && two != nullptr) << error;
    EXPECT_NE(one->path(), two->path());
}

}  // namespace
}  // namespace sim
