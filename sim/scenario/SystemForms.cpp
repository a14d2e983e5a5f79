// SPDX-License-Identifier: Apache-2.0
// Commands: what people and the platform do.
#include "scenario/Form.h"
#include "scenario/Player.h"
#include "scenario/Vocabulary.h"
#include "session/SessionError.h"

namespace sim::scenario {
namespace {

int displayIn(const Arguments& arguments) {
    return arguments.number("display", World::kPrimaryDisplay);
}

void front(Player& player, const Arguments& arguments) {
    player.headset().showActivity(arguments.text("APP"), displayIn(arguments));
}

void back(Player& player, const Arguments& arguments) {
    player.headset().finishActivity(arguments.text("APP"), displayIn(arguments));
}

void window(Player& player, const Arguments& arguments) {
    const std::string owner = arguments.text("OWNER");
    if (owner == "none") return player.headset().focusNoWindow();
    player.headset().focusWindow(owner);
}

void panel(Player& player, const Arguments& arguments) {
    player.headset().setPanelService(arguments.text("APP"), arguments.text("SWITCH") == "on");
}

void addDisplay(Player& player, const Arguments& arguments) {
    player.headset().addDisplay(arguments.number("DISPLAY"));
}

void removeDisplay(Player& player, const Arguments& arguments) {
    player.headset().removeDisplay(arguments.number("DISPLAY"));
}

void install(Player& player, const Arguments& arguments) {
    const std::string package = arguments.text("PACKAGE");
    if (player.headset().isInstalled(package))
        throw SessionError("package '" + package + "' is installed already");
    std::set<std::string> permissions;
    for (const std::string& word : arguments.list("permissions"))
        permissions.insert(permissionOf(word));
    player.headset().install(package, arguments.number("uid"), permissions);
}

void setPermissions(Player& player, const Arguments& arguments, bool granted) {
    for (const std::string& word : arguments.all("PERMISSION"))
        player.headset().setPermission(arguments.text("PACKAGE"), permissionOf(word), granted);
}

/** Whom a notice is about. */
void setClient(Player& player, const Arguments& arguments, const std::string& place,
               Notice* notice) {
    const std::string whose = arguments.text(place);
    if (whose.starts_with("pid:")) {
        notice->pid = std::stoi(whose.substr(4));
    } else if (whose != "none") {
        notice->pid = player.headset().lastPidOf(whose);
        notice->uid = player.headset().uidOf(whose);
    }
    notice->uid = arguments.number("uid", notice->uid);
}

template <Notice::Kind kKind>
void notice(Player& player, const Arguments& arguments) {
    Notice notice;
    notice.kind = kKind;
    setClient(player, arguments, arguments.has("OWNER") ? "OWNER" : "WHOSE", &notice);
    notice.value = arguments.text("SWITCH") == "on" ? 1 : 0;
    player.headset().notice(notice);
}

void displayNotice(Player& player, const Arguments& arguments) {
    Notice notice;
    notice.kind = Notice::Kind::DisplayEvent;
    notice.display = arguments.number("DISPLAY");
    notice.value = numberOf(displayEventNames(), arguments.text("CHANGE"));
    player.headset().notice(notice);
}

void property(Player& player, const Arguments& arguments) {
    const std::string name = arguments.text("PROPERTY");
    const std::string value = arguments.text("TEXT");
    if (player.booted() == nullptr) return player.setEarlyProperty(name, value);
    player.headset().setProperty(name, value);
}

}  // namespace

std::vector<Form> systemForms() {
    return {
            quietAction("front APP [display=DISPLAY]",
                        "an app's activity comes to the top of a display (0, the main one, if "
                        "none is named; there it takes the focused window, too)",
                        "front game", front),
            quietAction("back APP [display=DISPLAY]", "its activity on that display is finished",
                        "back game", back),
            quietAction("window OWNER", "the focused window is this app's, or nobody's",
                        "window game", window),
            quietAction("panel APP SWITCH", "its foreground panel service starts or stops",
                        "panel browser on", panel),
            quietAction("display add DISPLAY", "a display is connected", "display add 2",
                        addDisplay),
            quietAction("display remove DISPLAY", "a display is removed", "display remove 2",
                        removeDisplay),
            action("install PACKAGE uid=UID [permissions=PERMISSIONS]", "install a package",
                   "install com.lumen.browser uid=10063 permissions=background-head", install),
            action("allow PACKAGE PERMISSION...", "grant permissions to a package",
                   "allow com.orbit.racer background-head",
                   [](Player& player, const Arguments& arguments) {
                       setPermissions(player, arguments, /*granted=*/true);
                   }),
            action("deny PACKAGE PERMISSION...", "take permissions from it",
                   "deny com.orbit.racer background-head",
                   [](Player& player, const Arguments& arguments) {
                       setPermissions(player, arguments, /*granted=*/false);
                   }),
            action("notice activities WHOSE SWITCH [uid=UID]",
                   "only a notice: the app has foreground activities, or none",
                   "notice activities game on", notice<Notice::Kind::ForegroundActivities>),
            action("notice services WHOSE [uid=UID]", "only a notice: its services have changed",
                   "notice services game", notice<Notice::Kind::ForegroundServices>),
            action("notice died WHOSE [uid=UID]", "only a notice: it has died", "notice died game",
                   notice<Notice::Kind::ProcessDied>),
            action("notice window OWNER [uid=UID]", "only a notice: it has the focused window",
                   "notice window game uid=1000", notice<Notice::Kind::FocusedWindow>),
            action("notice display DISPLAY CHANGE", "only a notice: what happened to a display",
                   "notice display 2 removed", displayNotice),
            action("say activities", "the activity manager tells all that it knows once more",
                   "say activities",
                   [](Player& player, const Arguments&) {
                       player.headset().reportActivitiesAgain();
                   }),
            action("say window", "the window manager tells who has the window once more",
                   "say window",
                   [](Player& player, const Arguments&) { player.headset().reportWindowAgain(); }),
            action("property PROPERTY TEXT",
                   "set a system property; before the first other command: before anything starts",
                   "property debug.nqs.vrfocus.permissive 1", property),
    };
}

}  // namespace sim::scenario
