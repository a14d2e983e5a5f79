// SPDX-License-Identifier: Apache-2.0
//
// Telemetry manager: what arrives in the sink, and what becomes of a sink that takes nothing.
#include <android-base/unique_fd.h>
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>

#include <array>

#include "../../testing/Child.h"
#include "../SinkLimits.h"
#include "TempSink.h"

namespace hosttelemetry {

using android::base::unique_fd;
using hosttesting::Child;
using test::report;
using test::TempSink;
using testing::ElementsAre;

namespace {

int64_t nowUs() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1'000;
}

off_t sizeOf(const std::string& path) {
    struct stat state {};
    return stat(path.c_str(), &state) == 0 ? state.st_size : -1;
}

/** Makes `path` a sparse file of this size. */
void makeFile(const std::string& path, off_t size) {
    const unique_fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (ftruncate(file.get(), size) != 0) abort();
}

bool isFileSizeSignalQuiet() {
    sigset_t pending{};
    sigset_t blocked{};
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&pending, SIGXFSZ) == 0 && sigismember(&blocked, SIGXFSZ) == 0;
}

/** Gives this process a user namespace in which it is root; as root, nothing is needed. */
bool becomeRoot() {
    using android::base::WriteStringToFile;
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (uid == 0) return true;
    return unshare(CLONE_NEWUSER) == 0 && WriteStringToFile("deny", "/proc/self/setgroups") &&
           WriteStringToFile("0 " + std::to_string(uid) + " 1", "/proc/self/uid_map") &&
           WriteStringToFile("0 " + std::to_string(gid) + " 1", "/proc/self/gid_map");
}

/** Mounts a file system with room for one page over `folder`, seen by this process alone. */
bool mountTinyDisk(const std::string& folder) {
    return becomeRoot() && unshare(CLONE_NEWNS) == 0 &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=4096") == 0;
}

}  // namespace

TEST(TelemetryManager, AppendsEachEventWithItsIdAndTime) {
    const TempSink sink;
    const int64_t before = nowUs();
    EXPECT_EQ(report(120828, {"\n\x02hi", 4}), 0);
    EXPECT_EQ(report(-1, "@\n"), 0);
    EXPECT_EQ(TelemetryManager_reportPlatformEvent(7, nullptr, 0), 0);
    const int64_t after = nowUs();

    const auto [events, damaged] = sink.read();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(damaged, 0U);
    EXPECT_EQ(events[0].id, 120828);
    EXPECT_EQ(events[0].bytes, std::string("\n\x02hi", 4));
    EXPECT_EQ(events[1].id, -1);
    EXPECT_EQ(events[1].bytes, "@\n");
    EXPECT_EQ(events[2].bytes, "");
    for (const Event& event : events) {
        EXPECT_GE(event.timeUs, before);
        EXPECT_LE(event.timeUs, after);
    }
}

TEST(TelemetryManager, TheLargestEventFitsAndALargerOneIsRefused) {
    const TempSink sink;
    const std::string largest(kMaxEventBytes, 'x');
    EXPECT_EQ(report(7, largest), 0);
    EXPECT_EQ(report(7, largest + 'x'), EMSGSIZE);
    EXPECT_THAT(sink.bytes(), ElementsAre(largest));
}

TEST(TelemetryManager, ASinkThatIsNoneIsRefusedAtOnce) {
    const TempSink sink;
    ASSERT_EQ(mkfifo((sink.folder() + "/fifo").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo((sink.folder() + "/read").c_str(), 0600), 0);
    const unique_fd reader(open((sink.folder() + "/read").c_str(), O_RDONLY | O_NONBLOCK));
    ASSERT_TRUE(reader.ok());
    ASSERT_EQ(symlink("loop", (sink.folder() + "/loop").c_str()), 0);
    struct Row {
        const char* name;
        std::string path;
        int status;
    };
    const Row rows[] = {
            {"empty", "", ENOENT},
            {"no such folder", sink.folder() + "/no/such", ENOENT},
            {"a folder", sink.folder(), EISDIR},
            {"a pipe that nobody reads", sink.folder() + "/fifo", ENXIO},
            {"a pipe with a reader", sink.folder() + "/read", EINVAL},
            {"a device", "/dev/null", EINVAL},
            {"a full device", "/dev/full", EINVAL},
            {"a link to itself", sink.folder() + "/loop", ELOOP},
            {"too long a name", std::string(5000, 'x'), ENAMETOOLONG},
    };
    for (const Row& row : rows) {
        setenv("HOST_TELEMETRY", row.path.c_str(), /*overwrite=*/1);
        EXPECT_EQ(report(7, "event"), row.status) << row.name;
    }
    unsetenv("HOST_TELEMETRY");
    EXPECT_EQ(report(7, "event"), ENOENT) << "unset";
}

TEST(TelemetryManager, AFileThatMayNotBeWrittenIsRefused) {
    const TempSink sink;
    makeFile(sink.path(), 0);
    ASSERT_EQ(chmod(sink.path().c_str(), 0444), 0);
    ASSERT_EQ(chmod(sink.folder().c_str(), 0755), 0);
    Child child([] {
        if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) return 1;
        return report(7, "event") == EACCES ? 0 : 2;
    });
    EXPECT_EQ(child.wait(), 0);
}

TEST(TelemetryManager, BytesThatAreNotThereAreRefused) {
    const TempSink sink;
    EXPECT_EQ(TelemetryManager_reportPlatformEvent(7, nullptr, 1), EINVAL);
    EXPECT_THAT(sink.bytes(), ElementsAre());
}

TEST(TelemetryManager, LeavesTheCallersErrnoAndDescriptorsAlone) {
    const TempSink sink;
    const unique_fd lowest(open("/dev/null", O_RDONLY | O_CLOEXEC));
    for (const bool isThere : {true, false}) {
        if (!isThere) setenv("HOST_TELEMETRY", "/no/such", /*overwrite=*/1);
        errno = ERANGE;
        EXPECT_EQ(report(7, "event") == 0, isThere);
        EXPECT_EQ(errno, ERANGE);
    }
    const unique_fd next(open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(next.get(), lowest.get() + 1);
}

TEST(TelemetryManager, ASinkThatIsRemovedIsMadeAnew) {
    const TempSink sink;
    EXPECT_EQ(report(7, "old"), 0);
    ASSERT_EQ(unlink(sink.path().c_str()), 0);
    EXPECT_EQ(report(7, "new"), 0);
    EXPECT_THAT(sink.bytes(), ElementsAre("new"));
}

TEST(TelemetryManager, AFullSinkTakesNoMore) {
    const TempSink sink;
    const auto line = static_cast<off_t>(formatEventLine(nowUs(), 7, "event").size());
    makeFile(sink.path(), kMaxSinkBytes - line + 1);
    EXPECT_EQ(report(7, "event"), EFBIG);
    EXPECT_EQ(sizeOf(sink.path()), kMaxSinkBytes - line + 1);
    makeFile(sink.path(), kMaxSinkBytes - line);
    EXPECT_EQ(report(7, "event"), 0);
    EXPECT_EQ(sizeOf(sink.path()), kMaxSinkBytes);
    makeFile(sink.path(), off_t{1} << 40);
    EXPECT_EQ(report(7, "event"), EFBIG);
}

TEST(TelemetryManager, AtItsFileSizeLimitTheProcessLivesAndOthersLoseNothing) {
    const TempSink sink;
    EXPECT_EQ(report(7, "first"), 0);
    const off_t size = sizeOf(sink.path());
    Child child([&] {
        const rlimit limit{static_cast<rlim_t>(size + 9), static_cast<rlim_t>(size + 9)};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
        if (report(7, "cut") != ENOSPC || !isFileSizeSignalQuiet()) return 2;
        if (report(7, "none") != EFBIG || !isFileSizeSignalQuiet()) return 3;
        return 0;
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(sizeOf(sink.path()), size + 9);
    EXPECT_EQ(report(7, "second"), 0);
    EXPECT_THAT(sink.bytes(), ElementsAre("first", "second"));
    EXPECT_EQ(sink.read().damaged, 1U);
}

TEST(TelemetryManager, AFileSizeSignalBlockedByTheCallerStaysBlocked) {
    const TempSink sink;
    sigset_t signal{};
    sigset_t before{};
    sigemptyset(&signal);
    sigaddset(&signal, SIGXFSZ);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &signal, &before), 0);
    EXPECT_EQ(report(7, "event"), 0);
    sigset_t after{};
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &before, &after), 0);
    EXPECT_EQ(sigismember(&after, SIGXFSZ), 1);
}

TEST(TelemetryManager, AFullDiskCostsTheEventsThatDoNotFit) {
    constexpr int kCannotMount = 77;
    const TempSink sink;
    Child child([&] {
        if (!mountTinyDisk(sink.folder())) return kCannotMount;
        size_t accepted = 0;
        while (report(7, std::string(500, 'x')) == 0)
            ++accepted;
        if (accepted == 0 || accepted > 4) return 1;
        if (report(7, std::string(500, 'x')) != ENOSPC) return 2;
        const auto [events, damaged] = sink.read();
        return events.size() == accepted && damaged <= 1 ? 0 : 3;
    });
    const int status = child.wait();
    if (status == kCannotMount) GTEST_SKIP() << "this user may not mount a disk of its own";
    EXPECT_EQ(status, 0);
}

}  // namespace hosttelemetry
