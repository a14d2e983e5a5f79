// SPDX-License-Identifier: Apache-2.0
//
// Process file system over a folder made by hand: contents that real processes rarely show.
#include "../ProcFs.h"

#include <android-base/file.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace NQS::OS {

namespace {

constexpr int kPid = 42;

class ProcFsTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(mkdir(folder().c_str(), 0755), 0); }

    [[nodiscard]] std::string folder() const {
        return std::string(mRoot.path) + "/" + std::to_string(kPid);
    }

    void write(const std::string& file, const std::string& text) {
        ASSERT_TRUE(android::base::WriteStringToFile(text, folder() + "/" + file));
    }

    [[nodiscard]] ProcFs procFs() const { return ProcFs(mRoot.path); }

private:
    TemporaryDir mRoot;
};

}  // namespace

TEST_F(ProcFsTest, CommandNameEndsAtTheFirstZeroOrWithTheFile) {
    using namespace std::string_literals;
    const struct {
        std::string content;
        std::string name;
    } rows[] = {
            {"app\0-x\0"s, "app"},
            {"app"s, "app"},
            {""s, ""},
            {"\0"s, ""},
            {"\0app\0"s, ""},
            {std::string(1023, 'a') + "\0b"s, std::string(1023, 'a')},
            {std::string(1024, 'a') + "\0b"s, std::string(1024, 'a')},
            {std::string(1025, 'a') + "\0b"s, std::string(1025, 'a')},
            {std::string(1024, 'a'), std::string(1024, 'a')},
            {std::string(70000, 'a'), std::string(70000, 'a')},
            {std::string(70000, 'a') + "\0"s + std::string(70000, 'b'), std::string(70000, 'a')},
    };
    for (const auto& row : rows) {
        write("cmdline", row.content);
        EXPECT_EQ(procFs().commandName(kPid), row.name) << row.content.size();
    }
}

TEST_F(ProcFsTest, ShortNameLosesOnlyTheLastNewline) {
    const struct {
        std::string content;
        std::string name;
    } rows[] = {
            {"app\n", "app"}, {"a\nb\n\n", "a\nb\n"}, {"a) R\n", "a) R"}, {"\n", ""}, {"", ""},
    };
    for (const auto& row : rows) {
        write("comm", row.content);
        EXPECT_EQ(procFs().shortName(kPid), row.name);
    }
}

TEST_F(ProcFsTest, MissingProcessHasNothing) {
    EXPECT_EQ(procFs().owner(kPid + 1), std::nullopt);
    EXPECT_EQ(procFs().commandName(kPid + 1), "");
    EXPECT_EQ(procFs().shortName(kPid + 1), "");
}

TEST_F(ProcFsTest, FileThatCannotBeReadGivesNoName) {
    ASSERT_EQ(mkdir((folder() + "/cmdline").c_str(), 0755), 0);
    EXPECT_EQ(procFs().commandName(kPid), "");
}

TEST_F(ProcFsTest, OwnerIsThatOfTheFolderNotOfTheFilesInIt) {
    EXPECT_EQ(procFs().owner(kPid)->uid, static_cast<int>(geteuid()));
    if (geteuid() != 0) GTEST_SKIP() << "only root can give folders away";
    write("cmdline", "app");
    ASSERT_EQ(chown(folder().c_str(), 10050, 10050), 0);
    EXPECT_EQ(procFs().owner(kPid)->uid, 10050);
}

}  // namespace NQS::OS
