// SPDX-License-Identifier: Apache-2.0
//
// What travels on a hub's control connection (driver/HubControl.h).
//
// A pair of SOCK_SEQPACKET sockets that the launcher made; one record is one message. The hub says
// Ready when it listens and then answers each Request with one Answer of the same id, in their
// order but for AwaitQuiet: that one waits, and is dropped by the next request about quiet.
//
//      Request:  | Request | count pids |          those that a question about quiet leaves out
//      Answer:   | Answer | text |                 what is in flight, for a person to read
#pragma once

#include <cstddef>
#include <cstdint>

namespace binderhost::control {

inline constexpr uint32_t kMagic = 0x62756863;

enum class Kind : uint32_t {
    Assign = 1,
    Reassign,
    AskQuiet,    // answered with what is the case when all that was sent before has been read
    AwaitQuiet,  // answered when nothing is in flight
    AskWatch,    // whether pid has asked to be told of the end of the one pid that follows
    Ready = 100,
    Answer,
};

struct Request {
    uint32_t magic = kMagic;
    Kind kind = Kind::Assign;
    uint64_t id = 0;
    int32_t pid = 0;
    uint32_t uid = 0;
    uint32_t count = 0;
    uint32_t reserved = 0;
};

struct Answer {
    uint32_t magic = kMagic;
    Kind kind = Kind::Answer;
    uint64_t id = 0;
    uint32_t status = 0;  // HubControl::Status
    uint32_t reserved = 0;
};

/** Pids that a question may leave out: more than there are processes in a session. */
inline constexpr size_t kMostPids = 4096;
inline constexpr size_t kMostText = 512;

}  // namespace binderhost::control
