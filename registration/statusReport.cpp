#include "statusReport.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "agentStanding.h"
#include "manifest.h"
#include "platform/utils.h"
#include "presence.h"
#include "utf8Output.h"

using nlohmann::json;

namespace {

const char* const kProfileNames[] = {"found", "sandboxed", "missing"};

// Whether every user's browser can read the file: it is readable by all and every folder
// above it, up to the root, can be passed by all.
bool readableByAll(const std::string& file, const std::string& root) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0 &&
           foldersAboveOpenToAll(file, root);
}

// This user's name in the user database, which names its managed preferences on macOS.
std::string userName() {
    passwd entry{};
    passwd* result = nullptr;
    char buffer[4096];
    return getpwuid_r(getuid(), &entry, buffer, sizeof(buffer), &result) == 0 && result
               ? result->pw_name
               : "";
}

json policyEntry(const BrowserPolicy& policy) {
    const auto list = [](const std::optional<std::vector<std::string>>& value) {
        return value ? json(*value) : json();
    };
    return {{"userLevelHosts", policy.userLevelHosts},
            {"blocklist", list(policy.blocklist)},
            {"allowlist", list(policy.allowlist)},
            {"files", policy.files}};
}

json verdictEntry(const BrowserVerdict& verdict) {
    const auto orNull = [](const std::string& text) { return text.empty() ? json() : json(text); };
    return {{"starts", verdict.starts},
            {"browserError", orNull(verdict.browserError)},
            {"reason", orNull(verdict.reason)},
            {"fix", orNull(verdict.fix)},
            {"reads", orNull(verdict.reads)}};
}

bool isInUse(const json& browser) {
    return browser["profile"] != "missing";
}

// The lines that say what the browser would do.
std::string verdictText(const json& browser) {
    if (browser["starts"]) {
        return "  => starts the host from " + browser["reads"].get<std::string>() + "\n";
    }
    return "  => will not start the host: " + browser["reason"].get<std::string>() +
           ".\n     The extension gets: \"" + browser["browserError"].get<std::string>() +
           "\"\n     Fix: " + browser["fix"].get<std::string>() + "\n";
}

std::string closingLine(const json& report) {
    const auto& browsers = report["browsers"];
    const bool anyInUse = std::any_of(browsers.begin(), browsers.end(), isInUse);
    if (!anyInUse) {
        return "No browser is in use here: start the browser once, then run status again.";
    }
    return report["starts"] ? "Every browser in use would start the host."
                            : "Some browser in use would not start the host: see its fix above.";
}

std::string joined(const json& items) {
    std::string text;
    for (const json& item : items) {
        text += (text.empty() ? "" : " ") + item.get<std::string>();
    }
    return text;
}

std::string presenceText(const json& browser) {
    const std::string profile = browser["profile"];
    const std::string note = browser["note"];
    return profile == "found"       ? "in use (" + note + ")"
           : profile == "sandboxed" ? note
           : profile == "missing"   ? "not in use"
                                    : "a folder for " + browser["family"].get<std::string>();
}

// The lines of one manifest: its scope and verdict, then what it runs or why it is broken.
std::string manifestText(const json& manifest) {
    const std::string scope = manifest["scope"];
    const std::string head = "  " + scope + std::string(8 - scope.size(), ' ');
    const std::string file = manifest["file"];
    const std::string indent(10, ' ');
    if (!manifest["found"]) {
        return head + "none: " + file + "\n";
    }
    if (manifest["sound"]) {
        return head + "sound: " + file + "\n" + indent + "runs " +
               manifest["path"].get<std::string>() + ", allows " + joined(manifest["ids"]) + "\n";
    }
    std::string text = head + "BROKEN: " + file + "\n";
    for (const json& problem : manifest["problems"]) {
        text += indent + problem.get<std::string>() + "\n";
    }
    return text;
}

std::string agentLine(const json& agent) {
    const std::string socket = agent["socket"];
    const std::string listener = agent["listener"];
    const std::string detail = agent["detail"];
    if (listener == "nothing") {
        return "Agent: nothing listens at " + socket + " (" + detail + "): is the agent running?";
    }
    const std::string who = agent["uid"].is_null()
                                ? "a user that cannot be told"
                                : "user id " + std::to_string(agent["uid"].get<uid_t>());
    if (listener == "this user") {
        return "Agent: listening at " + socket + " as " + who + ", whom the host trusts.";
    }
    return "Agent: " + socket + " is held by " + who + (detail.empty() ? "" : " (" + detail + ")") +
           ", not by this user: the host will not send it any message.";
}

}  // namespace

StatusReport::StatusReport(const CommandLine& line, std::ostream& out) : line(line), out(out) {}

json StatusReport::manifestEntry(const std::string& scope, const std::string& folder,
                                 Family family) {
    const std::string file = Manifest::fileIn(folder);
    std::error_code ignored;
    if (!std::filesystem::exists(std::filesystem::symlink_status(file, ignored))) {
        return {{"scope", scope}, {"file", file}, {"found", false}};
    }
    Manifest::Verdict verdict = Manifest::judgeFile(file, family);
    if (scope == "system" && verdict.problems.empty() && !readableByAll(file, line.root)) {
        verdict.problems.push_back(
            "other users cannot read it: it or a folder above it is not open to all");
    }
    if (!verdict.path.empty() && verdict.path.front() == '/') {
        const HostExecutable& host = executable(verdict.path, scope == "system");
        if (host.fault != HostExecutable::Fault::None) {
            verdict.problems.push_back(host.problem);
        }
    }
    return {{"scope", scope},
            {"file", file},
            {"found", true},
            {"sound", verdict.problems.empty()},
            {"path", verdict.path},
            {"pathIsExecutable", verdict.pathIsExecutable},
            {"ids", verdict.ids},
            {"malformedIds", verdict.malformedIds},
            {"problems", verdict.problems}};
}

const HostExecutable& StatusReport::executable(const std::string& path, bool forAllUsers) {
    const auto key = std::make_pair(path, forAllUsers);
    auto known = executables.find(key);
    if (known == executables.end()) {
        known = executables.emplace(key, HostExecutable::check(path, forAllUsers, line.root)).first;
        if (!known->second.versionAsked && known->second.fault == HostExecutable::Fault::None) {
            notes.push_back(HostExecutable::notAskedNote(path));
        }
    }
    return known->second;
}

BrowserVerdict::Lookup StatusReport::emptyLookup(Family family) {
    BrowserVerdict::Lookup lookup;
    lookup.family = family;
    lookup.platform = line.platform;
    lookup.executable = [this](const std::string& path, bool forAllUsers) {
        return executable(path, forAllUsers);
    };
    return lookup;
}

BrowserVerdict::Lookup StatusReport::lookupOf(const Browser& browser) {
    const Browser* folders =
        browser.readsAllOf.empty() ? &browser : browserNamed(line.platform, browser.readsAllOf);
    const Browser* system = browser.readsSystemOf.empty()
                                ? folders
                                : browserNamed(line.platform, browser.readsSystemOf);
    BrowserVerdict::Lookup lookup = emptyLookup(browser.family);
    lookup.userFile = Manifest::fileIn(line.inHome(*folders, folders->userFolder));
    for (const std::string& folder : system->systemFolders) {
        lookup.systemFiles.push_back(Manifest::fileIn(line.root + folder));
    }
    lookup.policy = BrowserPolicy::read(browser, line.platform, line.root, userName());
    return lookup;
}

json StatusReport::browserEntry(const Browser& browser) {
    const Presence presence = Presence::of(browser, line);
    json manifests = json::array(
        {manifestEntry("user", line.inHome(browser, browser.userFolder), browser.family)});
    for (const std::string& folder : browser.systemFolders) {
        manifests.push_back(manifestEntry("system", line.root + folder, browser.family));
    }
    const BrowserVerdict::Lookup lookup = lookupOf(browser);
    const BrowserVerdict verdict = presence.kind == Presence::Kind::Sandboxed
                                       ? BrowserVerdict::sandboxed(browser.family, presence.note)
                                       : BrowserVerdict::decide(lookup, line.ids(browser.family));
    json entry = {{"name", browser.name},
                  {"family", familyName(browser.family)},
                  {"profile", kProfileNames[static_cast<int>(presence.kind)]},
                  {"note", presence.note},
                  {"manifests", manifests},
                  {"policy", policyEntry(lookup.policy)}};
    entry.update(verdictEntry(verdict));
    return entry;
}

json StatusReport::folderEntry() {
    const Family family = *line.folderFamily;
    BrowserVerdict::Lookup lookup = emptyLookup(family);
    lookup.userFile = Manifest::fileIn(line.folder);
    json entry = {{"name", line.folder},
                  {"family", familyName(family)},
                  {"profile", "unknown"},
                  {"note", ""},
                  {"manifests", {manifestEntry("folder", line.folder, family)}},
                  {"policy", policyEntry(lookup.policy)}};
    entry.update(verdictEntry(BrowserVerdict::decide(lookup, line.ids(family))));
    return entry;
}

json StatusReport::agentEntry() const {
    const AgentStanding standing = AgentStanding::probe(getAgentSocketPath());
    const char* listener = standing.listener == AgentStanding::Listener::ThisUser ? "this user"
                           : standing.listener == AgentStanding::Listener::SomeoneElse
                               ? "someone else"
                               : "nothing";
    return {{"socket", standing.socketPath},
            {"listener", listener},
            {"uid", standing.listenerId ? json(*standing.listenerId) : json()},
            {"detail", standing.detail}};
}

void StatusReport::printText(const json& report) const {
    for (const json& browser : report["browsers"]) {
        out << browser["name"].get<std::string>() << ": " << presenceText(browser) << "\n";
        for (const json& manifest : browser["manifests"]) {
            out << manifestText(manifest);
        }
        if (isInUse(browser)) {
            out << verdictText(browser);
        }
    }
    for (const json& note : report["notes"]) {
        out << "Note: " << note.get<std::string>() << ".\n";
    }
    out << closingLine(report) << "\n" << agentLine(report["agent"]) << "\n";
}

int StatusReport::run() {
    json browsers = json::array();
    if (!line.folder.empty()) {
        browsers.push_back(folderEntry());
    } else {
        for (const Browser& browser : browserTable(line.platform)) {
            browsers.push_back(browserEntry(browser));
        }
    }
    int found = 0;
    bool broken = false;
    bool anyInUse = false;
    bool allStart = true;
    for (const json& browser : browsers) {
        for (const json& manifest : browser["manifests"]) {
            found += manifest["found"] ? 1 : 0;
            broken = broken || (manifest["found"] && !manifest["sound"]);
        }
        if (isInUse(browser)) {
            anyInUse = true;
            allStart = allStart && browser["starts"];
        }
    }
    const json draft = {{"browsers", browsers},
                        {"manifestsFound", found},
                        {"sound", found > 0 && !broken},
                        {"starts", anyInUse && allStart},
                        {"notes", notes},
                        {"agent", agentEntry()}};
    // Paths and parse errors may hold bytes that are not UTF-8 (from $HOME or a manifest), which
    // a JSON text cannot carry.
    const json report = Utf8Output::valid(draft);
    if (line.json) {
        out << report.dump(2) << "\n";
    } else {
        printText(report);
    }
    return report["starts"] && report["agent"]["listener"] != "someone else" ? 0 : 1;
}
