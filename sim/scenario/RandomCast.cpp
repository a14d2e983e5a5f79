// SPDX-License-Identifier: Apache-2.0
// Who appears in random scenarios.
#include "scenario/RandomCast.h"

namespace sim::scenario {
namespace {

/** An app with a package and a uid of its own. */
Role single(const std::string& process, int uid, const std::string& permissions = "?") {
    return {process, uid, process, {process.substr(0, process.find(':'))}, permissions};
}

Role twin(const std::string& process) {
    return {process, 10070, process, {"com.twin.left", "com.twin.right"}, "?"};
}

Role native(const std::string& name, const std::string& path, int uid) {
    return {name, uid, path, {}, ""};
}

}  // namespace

const std::vector<Role>& randomCast() {
    static const std::vector<Role> kCast{
            // The shell, its helper process, and others that may track in the background.
            single("com.velmar.shellenv", 10050, "read-focus,grant-tracking,dump"),
            single("com.velmar.shellenv:keyboard", 10050, "read-focus,grant-tracking,dump"),
            single("com.velmar.vrshell", 10051),
            single("com.velmar.boundary", 10052),
            single("com.velmar.systemdriver", 10053),
            single("com.velmar.mrservice", 10054),
            // System overlays.
            single("com.velmar.os.vrlockscreen", 10055),
            single("com.android.settings", 10056),
            single("com.velmar.vralertservice", 10057),
            {"system_server", 1000, "system_server", {"android"}, "read-focus,grant-tracking"},
            // Ordinary apps; one process twice, and one with a suffix.
            single("com.orbit.racer", 10061),
            {"racer-again", 10061, "com.orbit.racer", {"com.orbit.racer"}, "?"},
            single("com.orbit.racer:engine", 10061),
            single("com.pulse.coach:tracking", 10062, "read-focus,background-head"),
            single("com.lumen.browser", 10063, ""),
            single("com.vista.caster", 10064, "grant-tracking,background-input"),
            // A shared uid; the last one's name is no package of it.
            twin("com.twin.left"),
            twin("com.twin.left:remote"),
            twin("com.twin.right"),
            twin("com.twin.third"),
            // Trusted as a caller.
            single("com.sound.mixer", 1041, ""),
            // Native processes under the right uid, under a wrong one, unheard of, and root.
            native("audio", "/system/bin/audioserver", 1041),
            native("audio-astray", "/system/bin/audioserver", 1000),
            native("mixed-reality", "/system/bin/mrsystemservice", 1000),
            native("mixed-reality-astray", "/system/bin/mrsystemservice", 1041),
            native("avatars", "/system_ext/bin/avatardataserviced", 1000),
            native("avatars-astray", "/system_ext/bin/avatardataserviced", 10062),
            native("stranger", "/system/bin/stranger", 1001),
            native("root", "/system/bin/rootd", 0),
    };
    return kCast;
}

const std::set<std::string>& randomOverlays() {
    static const std::set<std::string> kOverlays{"com.velmar.os.vrlockscreen",
                                                 "com.android.settings",
                                                 "com.velmar.vralertservice", "system_server"};
    return kOverlays;
}

const std::vector<std::string>& randomProcessNames() {
    static const std::vector<std::string> kNames{
            "com.velmar.shellenv", "com.android.settings",    "system_server",
            "com.orbit.racer",     "com.orbit.racer:late",    "com.twin.left:other",
            "com.twin.right",      "/system/bin/audioserver", "renamed"};
    return kNames;
}

const std::vector<std::string>& randomPackages() {
    static const std::vector<std::string> kPackages{"com.late.one", "com.late.two",
                                                    "com.late.three", "com.late.four"};
    return kPackages;
}

}  // namespace sim::scenario
