// SPDX-License-Identifier: Apache-2.0
//
// Child: a real process of a test, gone with it.
//
//      Child server([&](Child::Door& door) {
//          RawClient me(path);
//          ...
//          door.tell('r');            // the parent's await('r') returns
//          door.await('g');           // until the parent's tell('g')
//      });
//
// What the function throws ends the child with status 1. A child that hangs is ended by an alarm.
#pragma once

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>

namespace binderhost::tests {

/** A check inside a child. */
inline void require(bool truth, const char* what) {
    if (!truth) throw std::runtime_error(what);
}

class Child {
public:
    /** One end of a pair of sockets: single letters back and forth. */
    class Door {
    public:
        explicit Door(int fd) : mFd(fd) {}
        void tell(char letter) const {
            if (send(mFd, &letter, 1, MSG_NOSIGNAL) != 1) throw std::runtime_error("door shut");
        }
        void await(char letter) const {
            pollfd wait{mFd, POLLIN, 0};
            char got = 0;
            if (poll(&wait, 1, 30'000) != 1 || recv(mFd, &got, 1, 0) != 1 || got != letter) {
                throw std::runtime_error(std::string("no '") + letter + "' came through the door");
            }
        }

        /** Whether something waits there, or the other side has gone. */
        [[nodiscard]] bool knocked() const {
            pollfd look{mFd, POLLIN, 0};
            return poll(&look, 1, 0) == 1;
        }

    private:
        int mFd;
    };

    explicit Child(const std::function<void(Door&)>& run) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends)) std::abort();
        std::fflush(nullptr);
        const pid_t parent = getpid();
        mPid = fork();
        if (mPid < 0) std::abort();
        if (mPid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != parent) _exit(1);
            alarm(200);
            close(ends[0]);
            _exit(runGuarded(run, ends[1]));
        }
        close(ends[1]);
        mFd = ends[0];
    }
    ~Child() {
        killAndWait();
        close(mFd);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void tell(char letter) const { Door(mFd).tell(letter); }
    void await(char letter) const { Door(mFd).await(letter); }
    [[nodiscard]] bool knocked() const { return Door(mFd).knocked(); }
    void signal(int number) const { ::kill(mPid, number); }
    void kill() const { signal(SIGKILL); }
    [[nodiscard]] pid_t pid() const { return mPid; }

    /** The exit status, or minus the signal. */
    [[nodiscard]] int wait() {
        int status = 0;
        if (waitpid(mPid, &status, 0) != mPid) return 255;
        mPid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    /** Whether it has ended, for wait() to tell how. */
    [[nodiscard]] bool ended() const {
        siginfo_t what{};
        return waitid(P_PID, static_cast<id_t>(mPid), &what, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               what.si_pid == mPid;
    }
    /** Or nothing, when its end is known. */
    void killAndWait() {
        if (mPid <= 0) return;
        kill();
        (void)wait();
    }

private:
    static int runGuarded(const std::function<void(Door&)>& run, int fd) {
        try {
            Door door(fd);
            run(door);
            return 0;
        } catch (const std::exception& problem) {
            std::fprintf(stderr, "child %d: %s\n", getpid(), problem.what());
            return 1;
        }
    }

    pid_t mPid = -1;
    int mFd = -1;
};

}  // namespace binderhost::tests
