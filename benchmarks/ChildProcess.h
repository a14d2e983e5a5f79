// SPDX-License-Identifier: Apache-2.0
//
// Processes of a benchmark: they die with it, whatever happens.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

/**
 * Root becomes an ordinary user, before anything is started: the daemon is no root on the device
 * (user "system"), and a hub knows of such a process that it cannot become another.
 */
void leaveRoot();

/** Forks; the child runs the body and exits with status 0. Ends the benchmark on failure. */
pid_t startChild(const std::function<void()>& body);

/**
 * Starts a program that takes "--ready-fd N" and waits until it has written a byte there. Ends the
 * benchmark with a message when it does not become ready.
 */
pid_t startServer(std::vector<std::string> command);

/**
 * Forks; the child runs the body with a descriptor and writes a byte there when it is ready, which
 * is waited for. Ends the benchmark when it ends before that.
 */
pid_t startReady(const std::function<void(int readyFd)>& body);

/** Kills and reaps. */
void stopChild(pid_t pid);
