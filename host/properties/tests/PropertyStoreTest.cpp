// SPDX-License-Identifier: Apache-2.0
//
// Property store: what is kept, what is refused, and files that are no store.
#include <android-base/file.h>
#include <dirent.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <properties/PropertyStore.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "../StoreLayout.h"
#include "TempStore.h"

namespace hostproperties {

using test::TempStore;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

namespace {

std::vector<std::pair<std::string, std::string>> listOf(const PropertyStore& store) {
    std::vector<std::pair<std::string, std::string>> all;
    store.forEach([&](const std::string& name, const std::string& value) {
        all.emplace_back(name, value);
    });
    return all;
}

void expectUnset(const PropertyStore& store) {
    EXPECT_EQ(store.get("debug.foo"), std::nullopt);
    EXPECT_THAT(listOf(store), ElementsAre());
}

}  // namespace

TEST(PropertyStore, MissingStoreHasNothingAndIsNotMadeByReading) {
    const TempStore temp;
    const PropertyStore store(temp.place());
    expectUnset(store);
    EXPECT_NE(access(temp.path().c_str(), F_OK), 0);
}

TEST(PropertyStore, ValueIsReadBackByAnotherInstance) {
    const TempStore temp;
    PropertyStore writer(temp.place());
    EXPECT_EQ(writer.set("debug.foo", "1").error, 0);
    EXPECT_EQ(writer.set("debug.bar", "").error, 0);
    EXPECT_EQ(writer.set("debug.foo", "two").error, 0);

    const PropertyStore reader(temp.place());
    EXPECT_EQ(reader.get("debug.foo"), "two");
    EXPECT_EQ(reader.get("debug.bar"), "");
    EXPECT_EQ(reader.get("debug.fo"), std::nullopt);
    EXPECT_EQ(reader.get(std::string(100, 'f')), std::nullopt);
    EXPECT_THAT(listOf(reader), ElementsAre(Pair("debug.foo", "two"), Pair("debug.bar", "")));
}

TEST(PropertyStore, NothingIsLeftBesideTheStore) {
    const TempStore temp;
    PropertyStore store(temp.place());
    EXPECT_EQ(store.set("debug.foo", "1").error, 0);
    std::vector<std::string> names;
    DIR* folder = opendir(temp.folder().c_str());
    while (const dirent* entry = readdir(folder))
        names.push_back(entry->d_name);
    closedir(folder);
    EXPECT_THAT(names, testing::UnorderedElementsAre(".", "..", "properties"));
}

TEST(PropertyStore, StoreThatAppearsGoesOrIsReplacedIsSeen) {
    const TempStore temp;
    const PropertyStore reader(temp.place());
    expectUnset(reader);

    EXPECT_EQ(PropertyStore(temp.place()).set("debug.foo", "first").error, 0);
    EXPECT_EQ(reader.get("debug.foo"), "first");

    ASSERT_EQ(unlink(temp.path().c_str()), 0);
    expectUnset(reader);

    EXPECT_EQ(PropertyStore(temp.place()).set("debug.foo", "second").error, 0);
    EXPECT_EQ(reader.get("debug.foo"), "second");

    const TempStore other;
    EXPECT_EQ(PropertyStore(other.place()).set("debug.foo", "third").error, 0);
    ASSERT_EQ(rename(other.path().c_str(), temp.path().c_str()), 0);
    EXPECT_EQ(reader.get("debug.foo"), "third");
}

TEST(PropertyStore, NamesAndValuesAreChecked) {
    const TempStore temp;
    PropertyStore store(temp.place());
    const struct {
        std::string name;
        std::string value;
        int error;
    } rows[] = {
            {"a", "", 0},
            {"A.b_c-d@e:9", "~ \xc3\xa9", 0},
            {std::string(31, 'n'), std::string(91, 'v'), 0},
            {"debug.nqs.vrfocus.permissive", "true", 0},
            {"", "1", EINVAL},
            {std::string(32, 'n'), "1", EINVAL},
            {"a", std::string(92, 'v'), EINVAL},
            {"a b", "1", EINVAL},
            {"a=b", "1", EINVAL},
            {"a/b", "1", EINVAL},
            {"\xc3\xa9", "1", EINVAL},
            {std::string("a\0b", 3), "1", EINVAL},
            {".a", "1", EINVAL},
            {"a.", "1", EINVAL},
            {"a..b", "1", EINVAL},
            {"a", "two\nlines", EINVAL},
            {"a", "\x7f", EINVAL},
            {"a", std::string("\0", 1), EINVAL},
    };
    for (const auto& row : rows) {
        const Status status = store.set(row.name, row.value);
        EXPECT_EQ(status.error, row.error) << row.name << "=" << row.value;
        EXPECT_EQ(status.message.empty(), row.error == 0) << status.message;
        if (row.error == 0) {
            EXPECT_EQ(store.get(row.name), row.value);
        }
    }
}

TEST(PropertyStore, ReadOnlyNamesAreSetOnce) {
    const TempStore temp;
    PropertyStore store(temp.place());
    EXPECT_EQ(store.set("ro.debuggable", "1").error, 0);
    EXPECT_EQ(store.set("ro.debuggable", "0").error, EPERM);
    EXPECT_EQ(store.set("ro.debuggable", "1").error, EPERM);
    EXPECT_EQ(store.get("ro.debuggable"), "1");
}

TEST(PropertyStore, FullStoreStillChangesWhatItHas) {
    const TempStore temp;
    PropertyStore store(temp.place());
    for (size_t i = 0; i < kCapacity; ++i) {
        ASSERT_EQ(store.set("n" + std::to_string(i), std::to_string(i)).error, 0) << i;
    }
    const Status status = store.set("one.more", "1");
    EXPECT_EQ(status.error, ENOSPC);
    EXPECT_THAT(status.message, HasSubstr("full"));
    EXPECT_EQ(store.set("n7", "new").error, 0);
    EXPECT_EQ(store.get("n7"), "new");
    EXPECT_EQ(store.get("n" + std::to_string(kCapacity - 1)), std::to_string(kCapacity - 1));
    EXPECT_EQ(listOf(store).size(), kCapacity);
}

TEST(PropertyStore, FileThatIsNoStoreCountsAsUnsetAndIsNotWrittenTo) {
    const TempStore good;
    ASSERT_EQ(PropertyStore(good.place()).set("debug.foo", "1").error, 0);
    std::string whole;
    ASSERT_TRUE(android::base::ReadFileToString(good.path(), &whole));
    std::string otherVersion = whole;
    ++otherVersion[sizeof(uint64_t)];

    const std::string contents[] = {
            "",
            "garbage",
            std::string(whole.size(), '\xff'),
            std::string(whole.size(), 0),
            whole + "x",
            whole.substr(0, whole.size() - 1),
            otherVersion,
    };
    for (const std::string& content : contents) {
        const TempStore temp;
        ASSERT_TRUE(android::base::WriteStringToFile(content, temp.path()));
        PropertyStore store(temp.place());
        expectUnset(store);
        const Status status = store.set("debug.foo", "1");
        EXPECT_EQ(status.error, EBADF);
        EXPECT_THAT(status.message, HasSubstr(temp.path()));
        std::string after;
        ASSERT_TRUE(android::base::ReadFileToString(temp.path(), &after));
        EXPECT_EQ(after, content);
    }
}

TEST(PropertyStore, StoreCutShortWhileInUseCountsAsUnset) {
    const TempStore temp;
    PropertyStore store(temp.place());
    ASSERT_EQ(store.set("debug.foo", "1").error, 0);
    ASSERT_EQ(store.get("debug.foo"), "1");
    ASSERT_EQ(truncate(temp.path().c_str(), 0), 0);
    expectUnset(store);
    EXPECT_EQ(store.set("debug.foo", "1").error, EBADF);
}

TEST(PropertyStore, WildContentsOfAStoreStayWithinBounds) {
    const TempStore temp;
    ASSERT_EQ(PropertyStore(temp.place()).set("debug.foo", "1").error, 0);
    std::string content;
    ASSERT_TRUE(android::base::ReadFileToString(temp.path(), &content));
    for (size_t i = 2 * sizeof(uint64_t); i < content.size(); ++i)
        content[i] = '\xff';
    ASSERT_TRUE(android::base::WriteStringToFile(content, temp.path()));

    PropertyStore store(temp.place());
    const auto all = listOf(store);
    ASSERT_EQ(all.size(), kCapacity);
    EXPECT_THAT(all.back(), Pair(std::string(31, '\xff'), std::string(91, '\xff')));
    EXPECT_EQ(store.set("debug.foo", "1").error, ENOSPC);
}

TEST(PropertyStore, FolderAndFifoInItsPlaceAreRefused) {
    const TempStore temp;
    ASSERT_EQ(mkfifo(temp.path().c_str(), 0600), 0);
    PropertyStore store(temp.place());
    expectUnset(store);
    EXPECT_EQ(store.set("debug.foo", "1").error, EBADF);

    ASSERT_EQ(unlink(temp.path().c_str()), 0);
    ASSERT_EQ(mkdir(temp.path().c_str(), 0700), 0);
    expectUnset(store);
    EXPECT_EQ(store.set("debug.foo", "1").error, EISDIR);
}

TEST(PropertyStore, StoreThatCannotBeMadeIsNamed) {
    const TempStore temp;
    const std::string path = temp.folder() + "/missing/properties";
    PropertyStore store({.path = path, .privateFolder = {}});
    expectUnset(store);
    const Status status = store.set("debug.foo", "1");
    EXPECT_EQ(status.error, ENOENT);
    EXPECT_THAT(status.message, HasSubstr(path));
}

TEST(PropertyStore, PrivateFolderIsMadeForItsUserAlone) {
    const TempStore temp;
    const std::string folder = temp.folder() + "/run";
    PropertyStore store({.path = folder + "/properties", .privateFolder = folder});
    expectUnset(store);
    EXPECT_EQ(store.set("debug.foo", "1").error, 0);
    EXPECT_EQ(store.get("debug.foo"), "1");
    struct stat made;
    ASSERT_EQ(stat(folder.c_str(), &made), 0);
    EXPECT_EQ(made.st_mode & 0777, 0700u);
}

TEST(PropertyStore, PrivateFolderThatOthersMayEnterIsRefused) {
    const TempStore temp;
    ASSERT_EQ(PropertyStore(temp.place()).set("debug.foo", "1").error, 0);
    ASSERT_EQ(chmod(temp.folder().c_str(), 0711), 0);
    PropertyStore store({.path = temp.path(), .privateFolder = temp.folder()});
    expectUnset(store);
    EXPECT_EQ(store.set("debug.foo", "2").error, EACCES);
}

TEST(PropertyStore, SettingNeedsWritePermission) {
    const TempStore temp;
    ASSERT_EQ(PropertyStore(temp.place()).set("debug.foo", "1").error, 0);
    ASSERT_EQ(chmod(temp.path().c_str(), 0444), 0);
    ASSERT_EQ(chmod(temp.folder().c_str(), 0755), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (geteuid() == 0 && setuid(10050) != 0) _exit(1);
        PropertyStore store(temp.place());
        const bool refused = store.set("debug.foo", "2").error == EACCES;
        _exit(refused && store.get("debug.foo") == "1" ? 0 : 2);
    }
    int result = 0;
    ASSERT_EQ(waitpid(child, &result, 0), child);
    EXPECT_TRUE(WIFEXITED(result) && WEXITSTATUS(result) == 0) << result;
}

TEST(StorePlace, ComesFromTheEnvironment) {
    const std::string uid = std::to_string(geteuid());
    const struct {
        const char* named;
        const char* runtime;
        std::string path;
        std::string folder;
    } rows[] = {
            {"/a/store", "/run/user/7", "/a/store", ""},
            {"", "/run/user/7", "/run/user/7/binderhub/properties", "/run/user/7/binderhub"},
            {"", "", "/tmp/binderhub-" + uid + "/properties", "/tmp/binderhub-" + uid},
    };
    for (const auto& row : rows) {
        setenv("HOST_PROPERTIES", row.named, /*overwrite=*/1);
        setenv("XDG_RUNTIME_DIR", row.runtime, /*overwrite=*/1);
        const StorePlace place = defaultStorePlace();
        EXPECT_EQ(place.path, row.path);
        EXPECT_EQ(place.privateFolder, row.folder);
    }
}

}  // namespace hostproperties
