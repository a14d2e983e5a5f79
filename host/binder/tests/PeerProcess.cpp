// SPDX-License-Identifier: Apache-2.0
#include "PeerProcess.h"

#include <android-base/thread_annotations.h>
#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include "KernelState.h"
#include "TestDevice.h"

namespace peers {
namespace {

using namespace android;
using namespace std::chrono_literals;
using binderhost::tests::onDevice;
using binderhost::tests::testDevice;

constexpr auto kDeadline = 30s;

/** Forks and executes; the child dies with the test. env is added to the environment. */
pid_t start(const std::vector<std::string>& command, const std::string& driver,
            const std::string& errors) {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child != 0) return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(3);
    setenv("BINDER_DRIVER", driver.c_str(), /*overwrite=*/1);
    if (!errors.empty()) {
        const int fd = open(errors.c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
        if (fd >= 0) dup2(fd, STDERR_FILENO);
    }
    std::vector<char*> arguments;
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(4);
}

int waitFor(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

template <typename Condition>
bool eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

std::atomic<int> gMade{0};

/** An object whose life is counted. */
class Made : public BBinder {
public:
    Made() { gMade++; }

protected:
    ~Made() override { gMade--; }
};

class PeerObject : public BBinder {
protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override;

private:
    static status_t callBack(const Parcel& data, Parcel* reply);
    static status_t callFromThreads(const Parcel& data);
    static status_t sendMany(const Parcel& data);
    static status_t countPipes(Parcel* reply);

    /** Keeps another, or nothing; what was kept is let go without the lock. */
    void keep(sp<IBinder> other) EXCLUDES(mLock) {
        const std::lock_guard lock(mLock);
        std::swap(mKept, other);
    }
    sp<IBinder> kept() EXCLUDES(mLock) {
        const std::lock_guard lock(mLock);
        return mKept;
    }

    // A one-way call and a two-way one may be served at once.
    std::mutex mLock;
    sp<IBinder> mKept GUARDED_BY(mLock);
};

status_t PeerObject::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    const IPCThreadState* thread = IPCThreadState::self();
    switch (code) {
        case kEcho:
            return reply->write(data.data(), data.dataSize());
        case kWho:
            reply->writeInt32(thread->getCallingPid());
            return reply->writeInt32(int32_t(thread->getCallingUid()));
        case kKeep: {
            sp<IBinder> other;
            const status_t status = data.readStrongBinder(&other);
            keep(std::move(other));
            return status;
        }
        case kGive:
            return reply->writeStrongBinder(kept());
        case kDrop:
            keep(nullptr);
            return OK;
        case kCallBack:
            return callBack(data, reply);
        case kCallFromThreads:
            return callFromThreads(data);
        case kSendMany:
            return sendMany(data);
        case kDie:
            _exit(0);
        case kWriteTo: {
            const int fd = data.readFileDescriptor();
            const std::string text = "written by a peer";
            const int closed = fcntl(fd, F_GETFD) & FD_CLOEXEC;
            if (write(fd, text.data(), text.size()) != ssize_t(text.size())) return -errno;
            return reply->writeBool(closed != 0);
        }
        case kCountPipes:
            return countPipes(reply);
        case kMake:
            return reply->writeStrongBinder(new Made());
        case kCountMade:
            return reply->writeInt32(gMade);
        default:
            return BBinder::onTransact(code, data, reply, flags);
    }
}

status_t PeerObject::callBack(const Parcel& data, Parcel* reply) {
    sp<IBinder> target;
    if (const status_t status = data.readStrongBinder(&target); status != OK) return status;
    const uint32_t code = data.readUint32();
    Parcel request;
    Parcel answer;
    if (const status_t status = target->transact(code, request, &answer); status != OK) {
        return status;
    }
    return reply->appendFrom(&answer, 0, answer.dataSize());
}

status_t PeerObject::callFromThreads(const Parcel& data) {
    sp<IBinder> target;
    if (const status_t status = data.readStrongBinder(&target); status != OK) return status;
    const uint32_t code = data.readUint32();
    const int32_t count = data.readInt32();
    std::vector<std::thread> threads;
    std::atomic<status_t> worst{OK};
    for (int32_t i = 0; i < count; i++) {
        threads.emplace_back([&] {
            Parcel request;
            Parcel answer;
            const status_t status = target->transact(code, request, &answer);
            if (status != OK) worst = status;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    return worst;
}

status_t PeerObject::sendMany(const Parcel& data) {
    sp<IBinder> target;
    if (const status_t status = data.readStrongBinder(&target); status != OK) return status;
    const uint32_t code = data.readUint32();
    const int32_t count = data.readInt32();
    const std::vector<uint8_t> more(static_cast<size_t>(data.readInt32()));
    for (int32_t i = 0; i < count; i++) {
        Parcel request;
        request.writeInt32(i);
        if (!more.empty()) request.write(more.data(), more.size());
        status_t status = OK;
        const bool sent = eventually([&] {
            status = target->transact(code, request, nullptr, IBinder::FLAG_ONEWAY);
            return status != FAILED_TRANSACTION;
        });
        if (!sent || status != OK) return status;
    }
    return OK;
}

status_t PeerObject::countPipes(Parcel* reply) {
    int32_t count = 0;
    for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code vanished;
        const std::string target = std::filesystem::read_symlink(each.path(), vanished).string();
        if (target.rfind("pipe:", 0) == 0) count++;
    }
    return reply->writeInt32(count);
}

}  // namespace

Hub::Hub() {
    std::string folder = std::filesystem::temp_directory_path() / "bindertest-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) std::abort();
    mFolder = folder;
    if (onDevice()) return;
    std::array<int, 2> ready{};
    if (pipe(ready.data()) != 0) std::abort();
    fcntl(ready[0], F_SETFD, FD_CLOEXEC);
    mPid = start(
            {PROGRAMS "/binderhub", "--socket", path(), "--ready-fd", std::to_string(ready[1])},
            path(), /*errors=*/"");
    close(ready[1]);
    char byte = 0;
    // Nothing to read: it has ended, and whoever opens the driver says what is wrong.
    if (read(ready[0], &byte, 1) != 1) std::fprintf(stderr, "the hub did not start\n");
    close(ready[0]);
}

Hub::~Hub() {
    kill();
    leave();
}

void Hub::leave() {
    std::error_code ignored;
    std::filesystem::remove_all(mFolder, ignored);
}

void Hub::kill() {
    if (mPid <= 0) return;
    ::kill(mPid, SIGKILL);
    waitFor(mPid);
    mPid = -1;
}

std::string Hub::path() const {
    return onDevice() ? testDevice() : mFolder + "/hub";
}

int64_t Hub::stat(const std::string& name) const {
    if (onDevice()) return static_cast<int64_t>(binderhost::tests::kernelState().at(name));
    const std::string command = std::string(PROGRAMS "/binderhub --stats --socket ") + path();
    FILE* output = popen(command.c_str(), "re");
    if (output == nullptr) return -1;
    int64_t value = -1;
    std::array<char, 128> line{};
    while (fgets(line.data(), line.size(), output) != nullptr) {
        const std::string text = line.data();
        if (text.rfind(name + "=", 0) == 0) value = std::stoll(text.substr(name.size() + 1));
    }
    pclose(output);
    return value;
}

bool Hub::awaitStat(const std::string& name, int64_t value) const {
    return eventually([&] { return stat(name) == value; });
}

sp<IBinder> Registry::await(const std::string& name) {
    std::unique_lock lock(mLock);
    mPublished.wait_for(lock, kDeadline, [&] { return mBinders.contains(name); });
    return mBinders.contains(name) ? mBinders[name] : nullptr;
}

void Registry::forget(const std::string& name) {
    std::lock_guard lock(mLock);
    mBinders.erase(name);
}

std::string Registry::lastContext() {
    std::lock_guard lock(mLock);
    return mLastContext;
}

status_t Registry::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if (code != kPublish && code != kFind) return BBinder::onTransact(code, data, reply, flags);
    std::string name;
    sp<IBinder> binder;
    if (const status_t status = data.readUtf8FromUtf16(&name); status != OK) return status;
    if (code == kFind) {
        std::lock_guard lock(mLock);
        const auto found = mBinders.find(name);
        return found == mBinders.end() ? NAME_NOT_FOUND : reply->writeStrongBinder(found->second);
    }
    if (const status_t status = data.readStrongBinder(&binder); status != OK) return status;
    {
        std::lock_guard lock(mLock);
        mBinders[name] = binder;
        const char* context = IPCThreadState::self()->getCallingSid();
        mLastContext = context == nullptr ? "" : context;
    }
    mPublished.notify_all();
    return OK;
}

Peer::Peer(const Hub& hub, const std::string& name, const std::string& option)
      : mErrors(hub.folder() + "/" + name + ".err") {
    mPid = start({"/proc/self/exe", option, name}, hub.path(), mErrors);
}

Peer::~Peer() {
    kill();
}

void Peer::kill() {
    if (mPid <= 0) return;
    ::kill(mPid, SIGKILL);
    waitFor(mPid);
    mPid = -1;
}

int Peer::awaitExit() {
    int status = 0;
    if (!eventually([&] { return waitpid(mPid, &status, WNOHANG) == mPid; })) return -1;
    mPid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string Peer::errors() const {
    std::ifstream file(mErrors);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

void runPeer(const std::string& name) {
    ProcessState::self()->startThreadPool();
    const sp<IBinder> registry = ProcessState::self()->getContextObject(nullptr);
    if (registry == nullptr) IPCThreadState::self()->joinThreadPool();
    Parcel data;
    Parcel reply;
    data.writeUtf8AsUtf16(name);
    data.writeStrongBinder(new PeerObject());
    if (registry->transact(Registry::kPublish, data, &reply) != OK) std::exit(6);
    for (;;)
        pause();
}

status_t ask(const sp<IBinder>& peer, uint32_t code, Parcel* reply) {
    Parcel data;
    return peer->transact(code, data, reply);
}

}  // namespace peers
