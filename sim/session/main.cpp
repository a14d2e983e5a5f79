// SPDX-License-Identifier: Apache-2.0
//
// headset: a simulated headset, led from a prompt, by a program or by scenarios; or with a shell
// inside it.
//
// Exit status 0 when every expectation held, 1 when one did not or something could not be done, 2
// for a mistake in the command line or in what was to be played, 128 + N when ended by signal N;
// with --shell that of the shell.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "scenario/Prompt.h"
#include "scenario/RunFiles.h"
#include "scenario/ShellSession.h"
#include "scenario/StandardInput.h"
#include "session/Headset.h"
#include "session/StopSignals.h"

namespace {

const char* const kUsage =
        "usage: headset [run SCENARIO... | --stdin [--json] | --shell [COMMAND...] | --help]\n"
        "\n"
        "A simulated headset: the focus daemon, the platform services around it and the apps are\n"
        "real processes that call each other.\n"
        "\n"
        "  headset            a prompt: start apps, bring them to the front, break services, ask\n"
        "                     who has focus; help lists the commands\n"
        "  run SCENARIO...    play scenarios, each on a headset of its own, to the first that "
        "fails:\n"
        "                     files, or names of those in the folder scenarios here\n"
        "  --stdin            take commands from the standard input, as is done when that is no\n"
        "                     terminal; --json: answer each with a line of JSON\n"
        "  --shell            boot the headset, start some apps and run COMMAND, else your "
        "$SHELL,\n"
        "                     inside it: dumpsys, service, setprop, telemetry reach its daemon\n"
        "\n"
        "The calls go through a binderhub of the session's own, which vouches for a uid of each\n"
        "app's own. With BINDER_DRIVER naming a binder device (/dev/binder) they go through the\n"
        "kernel: there root's apps run under their uids, and all others under yours.\n"
        "Exit status: 0 every expectation held, 1 one did not or something could not be done, 2 a\n"
        "mistake in the command line, a scenario or a command, 128 + N ended by signal N; with\n"
        "--shell that of the shell or command.\n";

std::string programsFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}

sim::Headset::Options optionsFor(sim::StopSignals& stops) {
    return sim::Headset::usualOptions(programsFolder(), stops);
}

/** One that was closed would be the number of something else that is opened. */
void openStandardStreams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) < 0) static_cast<void>(open("/dev/null", O_RDWR));
    }
}

int refuse(const std::string& complaint) {
    std::fprintf(stderr, "headset: %s\n%s", complaint.c_str(), kUsage);
    return 2;
}

int refuseWord(const std::string& word) {
    return refuse("what is '" + word + "'?");
}

int help() {
    std::fputs(kUsage, stdout);
    return 0;
}

int dialogue(bool stdinIsWanted, bool json) {
    sim::StopSignals stops;
    const sim::Headset::Options options = optionsFor(stops);
    const bool isTerminal = isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
    if (isTerminal && !stdinIsWanted) return sim::scenario::runPrompt(options);
    return sim::scenario::runStandardInput(options, json);
}

int takeStandardInput(const std::vector<std::string>& words) {
    bool json = false;
    bool isWanted = false;
    for (const std::string& word : words) {
        bool* flag = word == "--json" ? &json : word == "--stdin" ? &isWanted : nullptr;
        if (flag == nullptr) return refuseWord(word);
        if (*flag) return refuse("'" + word + "' is given twice");
        *flag = true;
    }
    return isWanted ? dialogue(isWanted, json) : refuse("--json goes with --stdin");
}

int runScenarios(const std::vector<std::string>& files) {
    if (files.empty()) return refuse("run wants a SCENARIO");
    for (const std::string& file : files) {
        if (file.empty() || file[0] == '-') return refuseWord(file);
    }
    const auto scripts = sim::scenario::readFiles(files);
    if (!scripts) return 2;
    sim::StopSignals stops;
    return sim::scenario::playScripts(optionsFor(stops), *scripts);
}

int openShell(const std::vector<std::string>& command) {
    if (!command.empty() && (command[0].empty() || command[0][0] == '-')) {
        return refuseWord(command[0]);
    }
    sim::StopSignals stops;
    return sim::scenario::runShell(optionsFor(stops), command);
}

}  // namespace

int main(int argc, char** argv) {
    openStandardStreams();
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.empty()) return dialogue(/*stdinIsWanted=*/false, /*json=*/false);
    const std::string& first = words.front();
    const std::vector<std::string> rest(words.begin() + 1, words.end());
    if (first == "run") return runScenarios(rest);
    if (first == "--shell") return openShell(rest);
    if (first == "--stdin" || first == "--json") return takeStandardInput(words);
    if (first != "--help") return refuseWord(first);
    return rest.empty() ? help() : refuseWord(rest.front());
}
