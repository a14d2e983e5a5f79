// SPDX-License-Identifier: Apache-2.0
//
// Server: the hub's sockets.
//
// One thread, one epoll. Each round takes all events that are ready and treats them in this order:
//
//      1. letters of outboxes         all that were sent before now, by whomever
//      2. processes that have ended   their last frames are read, then everybody learns of the end
//      3. threads that have ended     likewise
//      4. one frame of each readable connection, the control connection among them
//      5. new connections
//
// So what a dead process still said comes before its death, its death before any command that was
// sent after it, and a letter before any frame that was sent after it. Reading one frame each keeps
// a busy sender from starving the others.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/epoll.h>

#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "embedded/ControlFrame.h"
#include "embedded/Frame.h"
#include "embedded/Socket.h"
#include "hub/Assignments.h"
#include "hub/Connection.h"
#include "hub/Hub.h"
#include "hub/Outboxes.h"

namespace binderhost::hub {

class Server {
public:
    /** Takes a listening socket and a descriptor that becomes readable when it is to stop. */
    Server(android::base::unique_fd listener, android::base::unique_fd stop,
           const Limits& limits = {});

    /**
     * Lets whoever made this pair of sockets control the hub (driver/HubControl.h) and tells it
     * that the hub is ready. 0, or a negative errno: it is no such pair of this user's.
     */
    [[nodiscard]] int obey(android::base::unique_fd control);

    /** Serves until told to stop. 0, or a negative errno of epoll. */
    [[nodiscard]] int run();

private:
    static constexpr int kAcceptedAtOnce = 64;

    struct ProcessEntry {
        frame::Token token{};
        std::vector<Connection*> connections;
    };

    Connection* add(Connection::Kind kind, android::base::unique_fd descriptor, uint32_t events);
    Connection* add(Connection::Kind kind, android::base::unique_fd descriptor, uint32_t events,
                    int epoll);
    void round(size_t count);
    /** Takes the letters whose bells have rung, and whose bells ring now. */
    void takeLetters();
    void hearBells();
    void acceptAll(int listener);
    void refuseForLackOfDescriptors(int listener);
    /** Says so once, until half of the connections have gone. */
    void tellOfRefusals(const char* reason);
    [[nodiscard]] int receive(const Connection& connection);
    void readFrame(Connection* connection);
    void handleFrame(Connection* connection, std::span<const uint8_t> bytes);
    void greet(Connection* connection, const frame::Header& header, std::span<const uint8_t> bytes);
    void openProcess(Connection* connection);
    void openThread(Connection* connection, const frame::Token& token);
    void control(Connection* connection, const frame::Header& header, uid_t uid,
                 std::span<const uint8_t> bytes);
    void commands(Connection* connection, const frame::Header& header, uid_t uid,
                  std::span<const uint8_t> bytes);
    void openOutbox(Connection* connection, uid_t uid);
    void answer(Connection* connection, int status);
    /** Sends an answer; one that cannot go with its descriptors becomes a refusal. */
    void send(Connection* connection, const frame::Answer& answer,
              std::vector<PassedDescriptor> descriptors = {});
    void answerStats(Connection* connection);
    void shareUids(Connection* connection);

    // The control connection: ServerControl.cpp.
    void handleControl(std::span<const uint8_t> bytes);
    [[nodiscard]] HubControl::Status assign(const control::Request& request);
    /** A process that has an assigned uid has ended. */
    void endAssigned(Connection* watch);
    /** Whether the process has opened the driver; what it has left behind is closed first. */
    [[nodiscard]] bool isConnected(pid_t pid);
    /** Likewise of connections that have not said who they are. */
    [[nodiscard]] bool hasStranger(pid_t pid);
    void answerControl(uint64_t id, HubControl::Status status, std::string_view text = {});
    /** All that was sent before the question has been read, when `complete`. */
    void judgeQuiet(bool complete);
    /** Reads and treats all that is left in a connection whose other side has gone. */
    void drain(Connection* connection);
    void endProcess(Process* process);
    void closeProcess(Process* process);
    void endThread(Connection* connection);
    void cutOff(Connection* connection, const char* reason);
    void closeConnection(Connection* connection);
    void cutOffStuffed();
    /** After a crowd has left: what the allocator keeps of it would be the hub's for good. */
    void giveBackMemory();

    struct Question {
        uint64_t id = 0;
        std::set<pid_t> leftOut;
        bool waits = false;
        int looks = 0;
    };

    Hub mHub;
    Outboxes mOutboxes;
    const Limits mLimits;
    /** Null in a hub that nobody controls. */
    std::unique_ptr<Assignments> mAssignments;
    pid_t mLauncher = 0;
    Connection* mControl = nullptr;
    std::optional<Question> mQuestion;
    /** Something has happened since the question was looked at. */
    bool mUnjudged = false;
    android::base::unique_fd mEpoll;
    /** Within mEpoll: the bells of outboxes, each event of which comes once. */
    android::base::unique_fd mBells;
    size_t mBellCount = 0;
    /** Given up to take and refuse a connection when there is no descriptor left for it. */
    android::base::unique_fd mReserve;
    std::unordered_map<Connection*, std::unique_ptr<Connection>> mConnections;
    std::unordered_map<Process*, ProcessEntry> mProcesses;
    /** How many connections there were at the last refusal; 0: it is not to be held back. */
    size_t mRefusedAt = 0;
    size_t mMostConnections = 0;
    std::list<Connection*> mStrangers;
    Connection* mListener = nullptr;
    /** Connections that are there for the hub itself. */
    size_t mOwnConnections = 0;
    std::vector<Connection*> mStuffed;
    /** Closed in this round: events may still name them. */
    std::vector<std::unique_ptr<Connection>> mClosed;
    std::vector<epoll_event> mEvents;
    std::vector<epoll_event> mRung;
    std::vector<uint8_t> mRoom;
    Received mReceived;
    /** Of the frame in hand. */
    std::vector<PassedDescriptor> mDescriptors;
    bool mStopping = false;
};

}  // namespace binderhost::hub
