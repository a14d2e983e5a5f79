// SPDX-License-Identifier: Apache-2.0
//
// Peers: processes of a test's own, each with an object that does what the test asks.
//
// The test process is the context manager. Its hub runs in a folder of its own. A peer is the test
// program started again as "--peer NAME"; it publishes its object under that name and serves.
#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <sys/types.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

namespace peers {

/** What a peer's object can be asked to do. */
enum Ask : uint32_t {
    /** Bytes in, the same bytes out. */
    kEcho = android::IBinder::FIRST_CALL_TRANSACTION,
    /** Calling pid and uid, as the peer sees them. */
    kWho,
    /** Keeps a binder; kGive hands it out again, kDrop lets go of it. */
    kKeep,
    kGive,
    kDrop,
    /** Calls a binder with a code; what that answers is passed on. */
    kCallBack,
    /** Starts as many threads, each of which calls a binder with a code, and waits for all. */
    kCallFromThreads,
    /**
     * So many one-way calls to a binder with a code, each with its number and so many bytes more;
     * full queues are waited out.
     */
    kSendMany,
    /** Ends without an answer. */
    kDie,
    /** Writes a text into a descriptor. */
    kWriteTo,
    /** How many ends of pipes are open. */
    kCountPipes,
    /** Makes a new object and hands it out. */
    kMake,
    /** How many objects made by kMake live. */
    kCountMade,
};

/**
 * The hub, and what it needs on disk. Started and ended by the test. On a device the kernel stands
 * in for it: nothing is started, and its figures are the kernel's.
 */
class Hub {
public:
    Hub();
    ~Hub();
    Hub(const Hub&) = delete;
    Hub& operator=(const Hub&) = delete;

    /** What to open as the driver. */
    [[nodiscard]] std::string path() const;
    [[nodiscard]] const std::string& folder() const { return mFolder; }
    void kill();
    /** Tidies up and leaves the hub to end with this process. */
    void leave();
    /** Whether a number that the hub reports reaches a value before a deadline. */
    [[nodiscard]] bool awaitStat(const std::string& name, int64_t value) const;
    [[nodiscard]] int64_t stat(const std::string& name) const;

private:
    std::string mFolder;
    pid_t mPid = -1;
};

/** Names to binders, in the test process, behind handle 0. */
class Registry : public android::BBinder {
public:
    static constexpr uint32_t kPublish = FIRST_CALL_TRANSACTION;
    /** A name in, its binder out. */
    static constexpr uint32_t kFind = FIRST_CALL_TRANSACTION + 1;

    /** Waits until a peer has published; null after a deadline. */
    android::sp<android::IBinder> await(const std::string& name);
    void forget(const std::string& name);
    /** The security context in which the last one published; empty when it is not known. */
    std::string lastContext();

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    std::mutex mLock;
    std::condition_variable mPublished;
    std::map<std::string, android::sp<android::IBinder>> mBinders;
    std::string mLastContext;
};

/** One peer, ended with the object. */
class Peer {
public:
    /** The option says what it lives as: see main(). */
    Peer(const Hub& hub, const std::string& name, const std::string& option = "--peer");
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    [[nodiscard]] pid_t pid() const { return mPid; }
    /** Ends it as if by a fault, and waits until it has ended. */
    void kill();
    /** Waits for it to end by itself; its exit status, or -1 after a deadline. */
    [[nodiscard]] int awaitExit();
    /** What it has written on stderr so far. */
    [[nodiscard]] std::string errors() const;

private:
    pid_t mPid = -1;
    std::string mErrors;
};

/** Of the test process, from its start to its end. */
extern Hub* gHub;
extern android::sp<Registry> gRegistry;

/** The life of a peer; does not return. Where there is no context manager, it only serves. */
[[noreturn]] void runPeer(const std::string& name);

/** Calls with nothing to say but a code. */
android::status_t ask(const android::sp<android::IBinder>& peer, uint32_t code,
                      android::Parcel* reply);

}  // namespace peers
