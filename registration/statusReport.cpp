#include "statusReport.h"

#include <sys/stat.h>

#include <filesystem>

#include "agentStanding.h"
#include "manifest.h"
#include "platform/utils.h"
#include "presence.h"

using nlohmann::json;

namespace {

const char* const kProfileNames[] = {"found", "sandboxed", "missing"};

// Whether every user's browser can read the file: it is readable by all and every folder
// above it, up to the root, can be passed by all.
bool readableByAll(const std::string& file, const std::string& root) {
    namespace fs = std::filesystem;
    struct stat status {};
    if (stat(file.c_str(), &status) != 0 || (status.st_mode & S_IROTH) == 0) {
        return false;
    }
    for (fs::path folder = fs::path(file).parent_path();
         folder.string().size() > root.size() && folder != folder.parent_path();
         folder = folder.parent_path()) {
        if (stat(folder.c_str(), &status) != 0 || (status.st_mode & S_IXOTH) == 0) {
            return false;
        }
    }
    return true;
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
                                 Family family) const {
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

json StatusReport::browserEntry(const Browser& browser) const {
    const Presence presence = Presence::of(browser, line.home);
    json manifests =
        json::array({manifestEntry("user", line.home + "/" + browser.userFolder, browser.family)});
    for (const std::string& folder : browser.systemFolders) {
        manifests.push_back(manifestEntry("system", line.root + folder, browser.family));
    }
    return {{"name", browser.name},
            {"family", familyName(browser.family)},
            {"profile", kProfileNames[static_cast<int>(presence.kind)]},
            {"note", presence.note},
            {"manifests", manifests}};
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
    }
    out << (report["manifestsFound"] == 0
                ? "No manifest of the host found: no browser will start it; install registers "
                  "it."
            : report["sound"] ? "Every manifest found is sound."
                              : "Some manifest is broken: the browser will not start the host "
                                "from it.")
        << "\n"
        << agentLine(report["agent"]) << "\n";
}

int StatusReport::run() {
    json browsers = json::array();
    if (!line.folder.empty()) {
        browsers.push_back(
            {{"name", line.folder},
             {"family", familyName(*line.folderFamily)},
             {"profile", "unknown"},
             {"note", ""},
             {"manifests", {manifestEntry("folder", line.folder, *line.folderFamily)}}});
    } else {
        for (const Browser& browser : browserTable(line.platform)) {
            browsers.push_back(browserEntry(browser));
        }
    }
    int found = 0;
    bool broken = false;
    for (const json& browser : browsers) {
        for (const json& manifest : browser["manifests"]) {
            found += manifest["found"] ? 1 : 0;
            broken = broken || (manifest["found"] && !manifest["sound"]);
        }
    }
    const json draft = {{"browsers", browsers},
                        {"manifestsFound", found},
                        {"sound", found > 0 && !broken},
                        {"agent", agentEntry()}};
    // Paths and parse errors may hold bytes that are not UTF-8 (from $HOME or a manifest): both
    // outputs show U+FFFD in their place.
    const json report = json::parse(draft.dump(-1, ' ', false, json::error_handler_t::replace));
    if (line.json) {
        out << report.dump(2) << "\n";
    } else {
        printText(report);
    }
    return report["sound"] && report["agent"]["listener"] != "someone else" ? 0 : 1;
}
