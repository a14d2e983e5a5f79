// SPDX-License-Identifier: Apache-2.0
#include "PeerFolder.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

PeerFolder::PeerFolder() : mOwner(getpid()), mPath("/tmp/vrfocus-bench.XXXXXX") {
    if (mkdtemp(mPath.data()) != nullptr) return;
    perror("mkdtemp");
    exit(1);
}

PeerFolder::~PeerFolder() {
    if (getpid() != mOwner) return;
    std::error_code error;
    std::filesystem::remove_all(mPath, error);
    if (error) fprintf(stderr, "%s: %s\n", mPath.c_str(), error.message().c_str());
}
