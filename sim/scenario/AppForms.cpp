// SPDX-License-Identifier: Apache-2.0
// Commands: apps and native processes come and go.
#include "scenario/Form.h"
#include "scenario/Player.h"
#include "scenario/Vocabulary.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

std::set<std::string> permissionsIn(const Arguments& arguments) {
    std::set<std::string> permissions;
    for (const std::string& word : arguments.list("permissions"))
        permissions.insert(permissionOf(word));
    return permissions;
}

/** The packages of an app: those that are named, else that of its process. */
std::vector<std::string> packagesOf(const Arguments& arguments, const std::string& process) {
    std::vector<std::string> packages = arguments.list("packages");
    if (packages.empty()) packages.push_back(packageOfProcess(process));
    return packages;
}

/** The uid of an app: as stated, as its package's, as at its last start, else a free one. */
int uidFor(Player& player, const Arguments& arguments, const std::vector<std::string>& packages) {
    if (arguments.has("uid")) return arguments.number("uid");
    const std::string name = arguments.text("NAME");
    for (const std::string& package : packages) {
        if (player.headset().isInstalled(package)) return player.headset().uidOfPackage(package);
    }
    if (player.headset().wasStarted(name)) return player.headset().uidOf(name);
    return player.freeUid();
}

Headset::AppSpec specIn(Player& player, const Arguments& arguments) {
    const std::string name = arguments.text("NAME");
    std::string process = arguments.text("process");
    if (process.empty()) {
        process = player.headset().wasStarted(name) ? player.headset().specOf(name).process : name;
    }
    const std::vector<std::string> packages = packagesOf(arguments, process);
    const int uid = uidFor(player, arguments, packages);
    for (const std::string& package : packages) {
        Headset& headset = player.headset();
        if (!headset.isInstalled(package)) {
            headset.install(package, uid, permissionsIn(arguments));
        } else if (headset.uidOfPackage(package) != uid && !arguments.has("uid")) {
            throw SessionError("package '" + package + "' is installed under another uid");
        }
    }
    return {name, process, uid, arguments.text("reusable") == "yes"};
}

void start(Player& player, const Arguments& arguments) {
    player.headset().startApp(specIn(player, arguments));
}

void startNative(Player& player, const Arguments& arguments) {
    const std::string name = arguments.text("NAME");
    const std::string path = arguments.has("path") ? arguments.text("path") : name;
    player.headset().startApp({name, path, arguments.number("uid")});
}

/** The old process's pid comes back as another's, under another uid. */
void reuse(Player& player, const Arguments& arguments) {
    Headset::AppSpec successor = specIn(player, arguments);
    successor.isReusable = player.headset().specOf(arguments.text("APP")).isReusable;
    player.headset().reuse(arguments.text("APP"), successor);
}

void rename(Player& player, const Arguments& arguments) {
    player.headset().renameApp(arguments.text("APP"), arguments.text("PROCESS"));
}

void crash(Player& player, const Arguments& arguments) {
    player.headset().crashApp(arguments.text("APP"));
}

}  // namespace

std::vector<Form> appForms() {
    using enum Form::Names;
    return {
            action("start NAME [uid=UID] [process=PROCESS] [packages=PACKAGES] "
                   "[permissions=PERMISSIONS] [reusable=YESNO]",
                   "start an app; its packages are installed if they are not; reusable: its pid "
                   "can be reused",
                   "start game uid=10061 process=com.orbit.racer permissions=read-focus", start,
                   Start),
            action("native NAME uid=UID [path=PROCESS]",
                   "start a native process, which belongs to no package",
                   "native audio uid=1041 path=/system/bin/audioserver", startNative, Start),
            action("reuse APP NAME uid=UID [process=PROCESS] [packages=PACKAGES] "
                   "[permissions=PERMISSIONS]",
                   "an app ends, and another one starts under the same pid",
                   "reuse game stranger uid=10099 process=com.other.app", reuse, Replace),
            action("rename APP PROCESS", "its process takes another name",
                   "rename game com.orbit.racer:vr", rename),
            quietAction("crash APP", "kill an app at once (SIGKILL)", "crash game", crash, End),
    };
}

}  // namespace sim::scenario
