// SPDX-License-Identifier: Apache-2.0
//
// binderhub: the process behind the embedded driver.
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <getopt.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "driver/Driver.h"
#include "embedded/StatsClient.h"
#include "hub/Listening.h"
#include "hub/Server.h"

using android::base::unique_fd;
using namespace binderhost;

namespace {

constexpr const char* kUsage =
        "usage: binderhub [--socket PATH] [--ready-fd N] [--control-fd N] [--stats] [--help]\n"
        "  --socket PATH   where to listen; its folder must exist. Without it: $BINDER_DRIVER,\n"
        "                  else binderhub/hub in $XDG_RUNTIME_DIR, else /tmp/binderhub-UID/hub\n"
        "  --ready-fd N    write one byte to descriptor N when listening\n"
        "  --control-fd N  let whoever made the socket pair that descriptor N is an end of "
        "control\n"
        "                  the hub: assign uids to its children, ask whether anything is in "
        "flight\n"
        "  --stats         print what the hub that runs there holds, and end\n";

struct Options {
    std::string socket;
    int readyFd = -1;
    int controlFd = -1;
    bool stats = false;
    bool help = false;
};

bool parseDescriptor(const char* option, const char* text, int* out) {
    const char* end = text + std::strlen(text);
    const auto [stop, problem] = std::from_chars(text, end, *out);
    if (problem == std::errc() && stop == end && *out >= 0) return true;
    std::fprintf(stderr, "binderhub: %s wants a number: %s\n", option, text);
    return false;
}

bool parse(int argc, char** argv, Options* out) {
    const option known[] = {{"socket", required_argument, nullptr, 's'},
                            {"ready-fd", required_argument, nullptr, 'r'},
                            {"control-fd", required_argument, nullptr, 'c'},
                            {"stats", no_argument, nullptr, 't'},
                            {"help", no_argument, nullptr, 'h'},
                            {}};
    for (int each = 0; (each = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (each) {
            case 's':
                out->socket = optarg;
                break;
            case 'r':
                if (!parseDescriptor("--ready-fd", optarg, &out->readyFd)) return false;
                break;
            case 'c':
                if (!parseDescriptor("--control-fd", optarg, &out->controlFd)) return false;
                break;
            case 't':
                out->stats = true;
                break;
            case 'h':
                out->help = true;
                break;
            default:
                return false;
        }
    }
    if (optind < argc) std::fprintf(stderr, "binderhub: what is %s?\n", argv[optind]);
    return optind == argc;
}

int printStats(const std::string& path) {
    std::string text;
    std::string error;
    if (!readHubStats(path, &text, &error)) {
        std::fprintf(stderr, "binderhub: %s\n", error.c_str());
        return 1;
    }
    std::fputs(text.c_str(), stdout);
    return 0;
}

unique_fd stopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return unique_fd(signalfd(-1, &set, SFD_CLOEXEC));
}

void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit)) return;
    limit.rlim_cur = limit.rlim_max;
    if (setrlimit(RLIMIT_NOFILE, &limit)) {
        std::fprintf(stderr, "binderhub: keeps its limit of descriptors: %m\n");
    }
}

int serve(const std::string& path, bool isDefault, const Options& options) {
    std::string error;
    if (isDefault && !hub::makePrivateFolder(path.substr(0, path.rfind('/')), &error)) {
        std::fprintf(stderr, "binderhub: %s\n", error.c_str());
        return 1;
    }
    unique_fd stop = stopSignals();
    raiseDescriptorLimit();
    // Where uids are given, those of another user's processes would count as nobody's.
    const hub::OpenTo whom = options.controlFd < 0 ? hub::OpenTo::All : hub::OpenTo::Owner;
    unique_fd listener = hub::listenAt(path, whom, &error);
    if (!listener.ok()) {
        std::fprintf(stderr, "binderhub: %s\n", error.c_str());
        return 1;
    }
    hub::Server server(std::move(listener), std::move(stop));
    if (options.controlFd >= 0) {
        fcntl(options.controlFd, F_SETFD, FD_CLOEXEC);
        if (const int status = server.obey(unique_fd(options.controlFd))) {
            std::fprintf(stderr, "binderhub: cannot be controlled through descriptor %d: %s\n",
                         options.controlFd, std::strerror(-status));
            unlink(path.c_str());
            return 1;
        }
    }
    if (options.readyFd >= 0) {
        if (write(options.readyFd, "", 1) != 1) {
            std::fprintf(stderr, "binderhub: cannot write to descriptor %d: %m\n", options.readyFd);
        }
        close(options.readyFd);
    }
    const int status = server.run();
    unlink(path.c_str());
    if (status == 0) return 0;
    std::fprintf(stderr, "binderhub: cannot wait for events: %s\n", std::strerror(-status));
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, &options)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    if (options.help) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    const char* variable = std::getenv("BINDER_DRIVER");
    const bool given = !options.socket.empty() || (variable != nullptr && *variable != 0);
    const std::string path = options.socket.empty() ? driverPath() : options.socket;
    return options.stats ? printStats(path) : serve(path, !given, options);
}
