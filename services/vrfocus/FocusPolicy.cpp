// SPDX-License-Identifier: Apache-2.0
//
// Focus policy: see FocusPolicy.h for the rules.
#include "FocusPolicy.h"

#include <cutils/properties.h>
#include <osutils/Process.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "FocusPolicyText.h"
#include "Utf8.h"

namespace NQS::OS {
namespace {

using android::String16;

constexpr std::string_view kShellPackage = "com.velmar.shellenv";

/** Processes whose windows lie over the app: they are immersive while they have window focus. */
const std::set<std::string>& systemOverlayProcesses() {
    static const std::set<std::string> kProcesses = {
            "system_server",
            "com.velmar.vralertservice",
            "com.velmar.os.vrlockscreen",
            "com.android.settings",
    };
    return kProcesses;
}

/** Read at every use, so that a change counts from the next decision on. */
bool isPermissiveFocus() {
    return property_get_bool("ro.debuggable", /*default_value=*/false) &&
           property_get_bool("debug.nqs.vrfocus.permissive", /*default_value=*/false);
}

}  // namespace

FocusPolicy::FocusPolicy(std::shared_ptr<ConnectionManager> connectionManager,
                         std::shared_ptr<ClientManager> clientManager)
      : mConnectionManager(std::move(connectionManager)),
        mClientManager(std::move(clientManager)) {}

FocusPolicy::~FocusPolicy() = default;

std::optional<FocusClientWithMetadata> FocusPolicy::newestKnownForegroundClient() {
    const std::vector<FocusClient> clients = mConnectionManager->getClientsWithForegroundActivity();
    for (auto client = clients.rbegin(); client != clients.rend(); ++client) {
        if (auto info = mClientManager->buildClientInfo(client->pid)) return info;
    }
    return std::nullopt;
}

// --- Top activity

String16 FocusPolicy::getTopActivity() {
    if (const auto client = newestKnownForegroundClient()) {
        return String16(client->package.data(), client->package.size());
    }
    return mConnectionManager->getTopActivityOnPrimaryDisplay();
}

bool FocusPolicy::isTopActivity(int pid) {
    // A process name against a package: a secondary process ("package:suffix") matches only where
    // its uid has several packages, because its own name then stands for its package.
    const std::string name = Process::getProcessName(pid, /*full=*/true);
    return name == toUtf8(getTopActivity());
}

void FocusPolicy::setMainDisplayFocus(bool focused) {
    mMainDisplayFocus = focused;
}

// --- Immersive app

std::optional<ImmersiveApp> FocusPolicy::getImmersiveApp() {
    const std::vector<FocusClient> rendering = mConnectionManager->getClientsCurrentlyRendering();
    std::lock_guard lock(mMutex);
    auto& chosen = mImmersiveState.immersiveApp;
    if (chosen && !Process::isProcessAlive(chosen->pid)) chosen.reset();

    std::optional<ImmersiveApp> app = overlayWithWindowFocusLocked(rendering);
    if (!app) app = shellOnTopLocked();
    if (!app) app = topRenderingClientLocked(rendering);
    // The flag's computed value served to decide; whoever reads a choice sees it set.
    if (app) app->isTopActivity = true;
    chosen = std::move(app);
    addToImmersiveAppHistory(chosen, mImmersiveState.history);
    return chosen;
}

std::optional<ImmersiveApp> FocusPolicy::overlayWithWindowFocusLocked(
        const std::vector<FocusClient>& rendering) {
    for (const FocusClient& client : rendering) {
        const auto info = mClientManager->buildClientInfo(client.pid);
        if (!info) continue;
        // Asked afresh for each candidate: focus may move while the list is walked.
        if (mConnectionManager->getClientWithWindowFocus().pid != client.pid) continue;
        if (!systemOverlayProcesses().contains(info->process)) continue;
        return info->toImmersiveApp(isTopActivity(client.pid));
    }
    return std::nullopt;
}

std::optional<ImmersiveApp> FocusPolicy::shellOnTopLocked() {
    const String16 topPackage = getTopActivity();
    const std::set<FocusClientWithMetadata> clients = mClientManager->getSnapshot();
    const auto shell = std::find_if(clients.begin(), clients.end(), [](const auto& client) {
        return client.package == kShellPackage;
    });
    if (shell == clients.end()) return std::nullopt;
    const std::string process = Process::getProcessName(shell->pid, /*full=*/true);
    // Asked a second time: the top may have moved while the snapshot was taken.
    const bool processOnTop = process == toUtf8(getTopActivity());
    if (!processOnTop && toUtf8(topPackage) != kShellPackage) return std::nullopt;
    return shell->toImmersiveApp(processOnTop);
}

std::optional<ImmersiveApp> FocusPolicy::topRenderingClientLocked(
        const std::vector<FocusClient>& rendering) {
    for (const FocusClient& client : rendering) {
        const auto info = mClientManager->buildClientInfo(client.pid);
        if (!info || !isTopActivity(client.pid)) continue;
        return info->toImmersiveApp(isTopActivity(client.pid));
    }
    return std::nullopt;
}

void FocusPolicy::addToImmersiveAppHistory(const std::optional<ImmersiveApp>& app,
                                           std::deque<ImmersiveAppHistoryRecord>& history) {
    if (!app) return;
    if (!history.empty() && history.front().app.pid == app->pid) return;
    history.push_front({std::chrono::system_clock::now(), *app});
    if (history.size() > kMaxHistory) history.pop_back();
}

// --- Focus state

void FocusPolicy::computeFocusState(FocusType type, const std::vector<int>& pids,
                                    std::vector<ClientStatus>& out) {
    const std::vector<KnownClient> known = knownClientsInOrder(type, pids);

    const std::vector<FocusClient> foreground =
            mConnectionManager->getClientsWithForegroundActivity();
    const std::vector<FocusClient> panels = mConnectionManager->getClientsWithForegroundPanelApp();
    std::set<FocusClient> focused;
    if (type == FocusType::InputTracking) {
        focused = inputTrackingClients(foreground, panels, known);
    } else if (type == FocusType::HeadTracking) {
        focused = headTrackingClients(foreground, panels);
    }

    out.reserve(out.size() + known.size());
    for (const auto& [client, hasBackgroundAccess] : known) {
        const bool hasFocus =
                hasBackgroundAccess || focused.contains(client) || isPermissiveFocus();
        ClientStatus status;
        status.pid = client.pid;
        status.hasFocus = hasFocus;
        out.push_back(status);
        if (hasFocus) {
            mClientManager->addCurrentFocus(client, type);
        } else {
            mClientManager->removeCurrentFocus(client, type);
        }
    }
}

std::vector<FocusPolicy::KnownClient> FocusPolicy::knownClientsInOrder(
        FocusType type, const std::vector<int>& pids) {
    std::vector<KnownClient> known;
    known.reserve(pids.size());
    for (const int pid : pids) {
        if (const auto info = mClientManager->buildClientInfo(pid)) {
            known.push_back({info->client(), info->backgroundAccess.contains(type)});
        }
    }
    // The first record of a repeated pid is the one that counts.
    const auto before = [](const KnownClient& left, const KnownClient& right) {
        return left.client < right.client;
    };
    if (!std::is_sorted(known.begin(), known.end(), before)) {
        std::stable_sort(known.begin(), known.end(), before);
    }
    const auto isSame = [](const KnownClient& left, const KnownClient& right) {
        return left.client == right.client;
    };
    known.erase(std::unique(known.begin(), known.end(), isSame), known.end());
    return known;
}

std::set<FocusClient> FocusPolicy::inputTrackingClients(const std::vector<FocusClient>& foreground,
                                                        const std::vector<FocusClient>& panels,
                                                        const std::vector<KnownClient>& known) {
    std::set<FocusClient> focused(panels.begin(), panels.end());
    const std::vector<FocusClient> top = mConnectionManager->getClientsWithTopActivities();
    focused.insert(top.begin(), top.end());
    focused.insert(foreground.begin(), foreground.end());

    const std::optional<ImmersiveApp> app = getImmersiveApp();
    if (!app) return focused;
    const auto immersive = std::find_if(known.begin(), known.end(), [&app](const auto& candidate) {
        return candidate.client.pid == app->pid;
    });
    if (immersive == known.end()) return focused;
    // Last of all signals: without the main display the immersive app loses what they gave it.
    if (mMainDisplayFocus) {
        focused.insert(immersive->client);
    } else {
        focused.erase(immersive->client);
    }
    return focused;
}

std::set<FocusClient> FocusPolicy::headTrackingClients(const std::vector<FocusClient>& foreground,
                                                       const std::vector<FocusClient>& panels) {
    std::set<FocusClient> focused(foreground.begin(), foreground.end());
    focused.insert(panels.begin(), panels.end());
    focused.insert(mConnectionManager->getClientWithWindowFocus());
    // Under the registry's uid, which may differ from the one that the tracker was told.
    if (const auto newest = newestKnownForegroundClient()) focused.insert(newest->client());
    const std::vector<FocusClient> top = mConnectionManager->getClientsWithTopActivities();
    focused.insert(top.begin(), top.end());
    const std::vector<FocusClient> allTop = mConnectionManager->getAllClientsWithTopActivities();
    focused.insert(allTop.begin(), allTop.end());
    return focused;
}

// --- Dumps

namespace {

void printClients(int fd, const std::vector<FocusClientWithMetadata>& clients) {
    for (const FocusClientWithMetadata& client : clients) {
        dprintf(fd, "  Process: %s UID: %d, PID: %d\n", client.process.c_str(), client.uid,
                client.pid);
    }
}

void printTypes(int fd, const char* heading, const std::set<FocusType>& types) {
    dprintf(fd, "    %s:", heading);
    for (const FocusType type : types) {
        dprintf(fd, " %s", kFocusTypeNames.at(static_cast<std::size_t>(type)).c_str());
    }
    dprintf(fd, "%s\n", types.empty() ? " None" : "");
}

Json::Value pidsOf(const std::vector<FocusClientWithMetadata>& clients) {
    // Said to be an array: a value that nothing is appended to would come out as null.
    Json::Value pids(Json::arrayValue);
    for (const FocusClientWithMetadata& client : clients)
        pids.append(client.pid);
    return pids;
}

}  // namespace

std::vector<FocusClientWithMetadata> FocusPolicy::knownClients(
        const std::vector<FocusClient>& clients) {
    std::vector<FocusClientWithMetadata> known;
    for (const FocusClient& client : clients) {
        if (auto info = mClientManager->buildClientInfo(client.pid)) {
            known.push_back(std::move(*info));
        }
    }
    return known;
}

void FocusPolicy::dump(int fd, const android::Vector<String16>& /*args*/) {
    dprintf(fd, " = Window Focus =\n");
    printClients(fd, knownClients({mConnectionManager->getClientWithWindowFocus()}));
    dprintf(fd, "\n = Top Activity =\n");
    dprintf(fd, "  %s\n", toUtf8(getTopActivity()).c_str());

    dprintf(fd, "\n = Immersive App =\n");
    std::lock_guard lock(mMutex);
    dumpImmersiveStateLocked(fd);

    dprintf(fd, "\n = Foreground Activity = \n");
    printClients(fd, knownClients(mConnectionManager->getClientsWithForegroundActivity()));
    dprintf(fd, "\n = Foreground Panel App = \n");
    printClients(fd, knownClients(mConnectionManager->getClientsWithForegroundPanelApp()));
    dprintf(fd, "\n = Clients currently rendering = \n");
    printClients(fd, knownClients(mConnectionManager->getClientsCurrentlyRendering()));

    dprintf(fd, "\n = All Clients = \n");
    for (const FocusClientWithMetadata& client : mClientManager->getSnapshot()) {
        printClients(fd, {client});
        printTypes(fd, "Background Access", client.backgroundAccess);
        printTypes(fd, "Current Focus", client.currentFocus);
    }

    dprintf(fd, "\n = Other = \n");
    dprintf(fd, "  Permissive: %s\n", isPermissiveFocus() ? "true" : "false");
}

void FocusPolicy::dumpImmersiveStateLocked(int fd) {
    if (const auto& app = mImmersiveState.immersiveApp) {
        dprintf(fd, "  Package: %s UID: %d, PID: %d\n", toUtf8(app->packageName).c_str(), app->uid,
                app->pid);
    }
    dprintf(fd, "\n = Last %d Immersive App History =\n", static_cast<int>(kMaxHistory));
    for (const ImmersiveAppHistoryRecord& record : mImmersiveState.history) {
        dprintf(fd, "  %s Package: %s UID: %d, PID: %d\n", localTimeText(record.time).c_str(),
                toUtf8(record.app.packageName).c_str(), record.app.uid, record.app.pid);
    }
}

Json::Value FocusPolicy::dumpJson() {
    Json::Value json(Json::objectValue);
    json["windowFocus"] = -1;
    const FocusClient windowFocus = mConnectionManager->getClientWithWindowFocus();
    if (const auto client = mClientManager->buildClientInfo(windowFocus.pid)) {
        json["windowFocus"] = client->pid;
    }
    json["topActivityPackage"] = toUtf8(getTopActivity());
    {
        std::lock_guard lock(mMutex);
        const auto& app = mImmersiveState.immersiveApp;
        json["immersiveApp"] = app ? toUtf8(app->packageName) : "";
    }
    json["foregroundActivities"] =
            pidsOf(knownClients(mConnectionManager->getClientsWithForegroundActivity()));
    json["foregroundPanelApps"] =
            pidsOf(knownClients(mConnectionManager->getClientsWithForegroundPanelApp()));
    json["renderingClients"] =
            pidsOf(knownClients(mConnectionManager->getClientsCurrentlyRendering()));
    json["allClients"] = Json::Value(Json::arrayValue);
    for (const FocusClientWithMetadata& client : mClientManager->getSnapshot()) {
        json["allClients"].append(client.toJson());
    }
    return json;
}

}  // namespace NQS::OS
