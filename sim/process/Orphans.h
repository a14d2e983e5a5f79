// SPDX-License-Identifier: Apache-2.0
//
// What a person's shell leaves running when it ends: background jobs, and programs that a killed
// one had started.
//
// While this object lives, processes whose parent ends become children of this process. Its
// destructor kills every child that is left, and theirs, so it must be destroyed last: after
// everything that owns a ChildProcess. One at a time; the process has no other children then.
//
// Limits: a process that has become another user's, by sudo for instance, is not killed.
#pragma once

namespace sim {

class Orphans {
public:
    Orphans();
    ~Orphans();
    Orphans(const Orphans&) = delete;
    Orphans& operator=(const Orphans&) = delete;
};

}  // namespace sim
