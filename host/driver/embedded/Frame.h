// SPDX-License-Identifier: Apache-2.0
//
// What travels between the embedded driver and the hub.
//
// AF_UNIX, SOCK_SEQPACKET: one record is one frame. A process has one connection that stands for
// its life and one for each of its threads.
//
//      process connection            client ─ HelloProcess ──▶ hub ─ Answer{token} ──▶ client
//                                    client ─ BecomeContextManager, SetMaxThreads, ... ─▶ hub
//                                                                   ─ Answer{status} ─▶ client
//                                                  (OpenOutbox: and with descriptors)
//      thread connection             client ─ HelloThread{token} ─▶ hub ─ Answer ──▶ client
//                                    client ─ Commands (BC_*) ────▶ hub
//                                    hub    ─ Returns  (BR_*) ────▶ client
//
// The hub sends Returns only to a thread that said kRead, and one record for each kRead: at most
// one is ever on its way, so the hub never blocks and nobody's socket fills.
//
//      Commands, Returns:   | Header | command | argument | command | argument | ...
//      BC_TRANSACTION, BC_REPLY, BR_TRANSACTION, BR_REPLY have as argument
//
//          | Transaction | data | offsets |                  placement Inline
//          | Transaction | offsets | objects |               placement Memory: the data stand in a
//                                                            sealed memory file, the transaction's
//                                                            first descriptor
//          | Transaction |                                   placement Unsendable: the sender's
//                                                            driver could not pack it; the hub
//                                                            fails the call in its turn
//
// BC_FREE_BUFFER carries the hub's buffer number in place of the pointer. Descriptors travel in
// the order of the transactions and of their objects; a descriptor object holds its ordinal. No
// field is aligned.
//
// Every frame of a client comes with SCM_CREDENTIALS, without which the hub would not know whose it
// is. The kernel stamps them unasked, with pid and real uid. Where the effective uid may be another
// a frame with a BC_TRANSACTION claims it, for the kernel to attest.
#pragma once

#include <linux/android/binder.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace binderhost::frame {

inline constexpr uint32_t kMagic = 0x62756872;
inline constexpr uint32_t kVersion = 2;

enum class Kind : uint32_t {
    HelloProcess = 1,
    HelloThread,
    Commands,
    CancelRead,  // the thread leaves: answer its outstanding read with nothing, if still unanswered
    BecomeContextManager,
    SetMaxThreads,
    OnewaySpamDetection,
    OpenOutbox,  // answered with three descriptors (embedded/OutboxLayout.h), or a negative errno
    Stats,
    AssignedUids,  // answered with one descriptor (embedded/UidTableLayout.h), or a negative errno
    Answer = 100,
    Returns,
};

/** Commands: the sender now waits for a record of Returns. */
inline constexpr uint32_t kRead = 1;
/** Commands: the sender has told itself that its one BC_REPLY is complete. */
inline constexpr uint32_t kCompletesLocally = 2;

/** Answer to HelloProcess: the process can have one uid only, so what the kernel stamps is enough.
 */
inline constexpr uint32_t kNeedsNoClaim = 1;

struct Header {
    uint32_t magic = kMagic;
    Kind kind = Kind::Commands;
    uint32_t flags = 0;
    uint32_t descriptors = 0;
};

using Token = std::array<uint8_t, 16>;

/** HelloProcess and HelloThread; the token is zero in the first. */
struct Hello {
    Header header;
    uint32_t version = kVersion;
    uint32_t reserved = 0;
    Token token{};
};

/** The requests of a process connection. */
struct Control {
    Header header;
    uint32_t value = 0;
    uint32_t reserved = 0;
};

struct Answer {
    Header header;
    int32_t status = 0;
    uint32_t version = kVersion;
    Token token{};
};

enum class Placement : uint32_t { Inline = 0, Memory = 1, Unsendable = 2 };

struct Transaction {
    binder_transaction_data data{};  // its two pointers are zero
    uint64_t buffer = 0;             // BR_*: the hub's number of the buffer
    Placement placement = Placement::Inline;
    uint32_t descriptors = 0;  // the memory file included
    uint32_t objects = 0;      // placement Memory: how many objects follow the offsets
    uint32_t reserved = 0;
};

/** A descriptor could not be received: the caller of the transaction in hand is to fail. */
inline constexpr uint32_t kCommandReject = _IO('c', 0x70);

/**
 * With its cookie: a BR_DEAD_BINDER that a thread leaves unread; another is to be told. Likewise
 * BR_INCREFS, BR_ACQUIRE, BR_RELEASE and BR_DECREFS, which go back as they came.
 */
inline constexpr uint32_t kCommandUntold = _IOW('c', 0x71, uint64_t);

/** The objects of this build are all of one size: flat_binder_object and binder_fd_object. */
inline constexpr size_t kObjectSize = sizeof(flat_binder_object);
static_assert(sizeof(binder_fd_object) == kObjectSize);

/** A process's buffer: 1 MiB less two pages, as the device has it. */
inline constexpr uint64_t kBufferBytes = 1024 * 1024 - 2 * 4096;
/** Payloads above this travel in a memory file: mapping costs about what copying this much does. */
inline constexpr uint64_t kInlineBytes = 32 * 1024;
/** Objects in a message, so that offsets and objects fit a record beside the data. */
inline constexpr uint64_t kMaxObjects = 2048;
/** The kernel's limit of descriptors in one message of a socket. */
inline constexpr uint32_t kMaxDescriptors = 253;
/** No record is larger; well below the default send buffer of a socket. */
inline constexpr size_t kMaxBytes = 128 * 1024;

}  // namespace binderhost::frame
