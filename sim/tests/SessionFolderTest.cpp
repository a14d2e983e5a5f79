// SPDX-License-Identifier: Apache-2.0
// The session's folder: who may enter it, and that nothing of it is left.
#include "process/SessionFolder.h"

#include <android-base/file.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace sim {
namespace {

TEST(SessionFolderTest, othersMayPassThroughOnlyWhenRootMadeIt) {
    std::string error;
    const auto folder = SessionFolder::make(&error);
    ASSERT_NE(folder, nullptr) << error;
    struct stat status {};
    ASSERT_EQ(stat(folder->path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, geteuid() == 0 ? 0711u : 0700u);
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

TEST(SessionFolderTest, rootTakesNoFolderThatItsAppsCannotPassThrough) {
    TemporaryDir folder;
    const char* before = getenv("TMPDIR");
    const std::string restored = before == nullptr ? "/tmp" : before;
    std::string error;
    for (const mode_t mode : {0700, 0711}) {
        ASSERT_EQ(chmod(folder.path, mode), 0);
        setenv("TMPDIR", folder.path, 1);
        const auto session = SessionFolder::make(&error);
        setenv("TMPDIR", restored.c_str(), 1);
        ASSERT_NE(session, nullptr) << error;
        const bool inside = session->path().starts_with(folder.path);
        EXPECT_EQ(inside, geteuid() != 0 || mode == 0711) << session->path();
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
