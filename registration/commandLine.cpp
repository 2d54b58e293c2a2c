#include "commandLine.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "manifest.h"

namespace {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string withoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

std::string runningPlatform() {
    utsname names{};
    return uname(&names) == 0 ? names.sysname : "";
}

bool isAbsolute(const std::string& path) {
    return !path.empty() && path.front() == '/';
}

void require(bool condition, const std::string& complaint) {
    if (!condition) {
        throw UsageError(complaint);
    }
}

// Reads the arguments into the command line, unchecked.
void readArguments(const std::vector<std::string>& arguments, CommandLine& line) {
    bool actionGiven = false;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string& argument = arguments[index];
        const auto value = [&]() -> const std::string& {
            require(index + 1 < arguments.size(), argument + " needs a value");
            return arguments[++index];
        };
        if (argument == "-h" || argument == "--help") {
            line.action = CommandLine::Action::Help;
            return;
        }
        if (argument == "install" || argument == "uninstall" || argument == "status") {
            require(!actionGiven, "give only one of install, uninstall and status");
            actionGiven = true;
            line.action = argument == "install"     ? CommandLine::Action::Install
                          : argument == "uninstall" ? CommandLine::Action::Uninstall
                                                    : CommandLine::Action::Status;
        } else if (argument == "--executable") {
            line.executable = value();
        } else if (argument == "--chrome-extension-id") {
            line.chromeIds.push_back(value());
        } else if (argument == "--firefox-extension-id") {
            line.firefoxIds.push_back(value());
        } else if (argument == "--folder") {
            line.folder = value();
            require(!line.folder.empty(), "--folder needs a value");
        } else if (argument == "--family") {
            const std::string& family = value();
            require(family == "chrome" || family == "firefox",
                    "--family is chrome or firefox, not " + family);
            line.folderFamily = family == "chrome" ? Family::Chrome : Family::Firefox;
        } else if (argument == "--all") {
            line.all = true;
        } else if (argument == "--system") {
            line.system = true;
        } else if (argument == "--json") {
            line.json = true;
        } else {
            throw UsageError("unknown argument: " + argument);
        }
    }
    require(actionGiven, "say install, uninstall or status");
}

void checkExecutable(const CommandLine& line) {
    require(!line.executable.empty(), "--executable is required");
    require(isAbsolute(line.executable),
            "the executable path must be absolute: " + line.executable);
    require(std::none_of(line.executable.begin(), line.executable.end(),
                         [](unsigned char c) { return c < 0x20 || c == 0x7f; }),
            "the executable path contains a control character");
    require(Manifest::canHold(line.executable),
            "the executable path is not valid UTF-8, which a manifest cannot hold");
    require(
        line.action != CommandLine::Action::Install || access(line.executable.c_str(), X_OK) == 0,
        "no executable file at " + line.executable);
}

void checkIds(const CommandLine& line) {
    require(!line.chromeIds.empty() || !line.firefoxIds.empty(),
            "install needs at least one --chrome-extension-id or --firefox-extension-id");
    for (const std::string& id : line.chromeIds) {
        require(Manifest::isChromeId(id),
                "malformed --chrome-extension-id (32 letters a to p): " + id);
    }
    for (const std::string& id : line.firefoxIds) {
        require(Manifest::isFirefoxId(id),
                "malformed --firefox-extension-id (name@domain or {GUID}): " + id);
    }
}

void checkFolder(CommandLine& line) {
    if (line.folder.empty()) {
        require(!line.folderFamily, "--family goes with --folder");
        return;
    }
    line.folder = withoutTrailingSlash(line.folder);
    require(isAbsolute(line.folder) && line.folder != "/",
            "the folder must be an absolute path below /: " + line.folder);
    require(!line.system && !line.all, "--folder excludes --system and --all");
    if (line.action == CommandLine::Action::Uninstall) {
        return;
    }
    require(line.folderFamily.has_value(), "--folder needs --family chrome or --family firefox");
    const std::string family = familyName(*line.folderFamily);
    require(line.action != CommandLine::Action::Install || !line.ids(*line.folderFamily).empty(),
            "--family " + family + " needs a --" + family + "-extension-id");
}

void checkSystem(const CommandLine& line) {
    if (!line.system) {
        return;
    }
    require(!line.all, "--system writes for every browser already; drop --all");
    require(!line.root.empty() || geteuid() == 0,
            "--system writes into the system folders and needs root: run it with sudo");
}

void checkEnvironment(const CommandLine& line) {
    require(isAbsolute(line.home), "HOME must be an absolute path");
    require(line.root.empty() || isAbsolute(line.root), "MANIFEST_ROOT must be an absolute path");
    require(line.platform == "Darwin" || line.platform == "Linux",
            "no browser table for the platform '" + line.platform +
                "' (MANIFEST_PLATFORM is Darwin or Linux)");
}

}  // namespace

CommandLine CommandLine::parse(const std::vector<std::string>& arguments) {
    CommandLine line;
    readArguments(arguments, line);
    if (line.action == Action::Help) {
        return line;
    }
    line.home = withoutTrailingSlash(environment("HOME"));
    line.root = withoutTrailingSlash(environment("MANIFEST_ROOT"));
    if (line.root == "/") {
        line.root.clear();
    }
    line.platform = environment("MANIFEST_PLATFORM");
    if (line.platform.empty()) {
        line.platform = runningPlatform();
    }
    checkEnvironment(line);
    const bool anyId = !line.chromeIds.empty() || !line.firefoxIds.empty();
    require(!line.json || line.action == Action::Status, "--json goes with status");
    if (line.action == Action::Status) {
        require(line.executable.empty() && !anyId && !line.all && !line.system,
                "status takes only --json, --folder and --family");
    } else {
        checkExecutable(line);
    }
    if (line.action == Action::Install) {
        checkIds(line);
    } else {
        require(!anyId && !line.all, "this command takes no extension id and no --all");
    }
    checkFolder(line);
    checkSystem(line);
    return line;
}

const std::vector<std::string>& CommandLine::ids(Family family) const {
    return family == Family::Chrome ? chromeIds : firefoxIds;
}

std::string CommandLine::usage(const std::string& program) {
    const std::string file = Manifest::kFileName;
    return "Usage: " + program +
           " install --executable PATH [--chrome-extension-id ID]...\n"
           "           [--firefox-extension-id ID]... [--all | --system]\n"
           "       " +
           program +
           " install --executable PATH --folder DIR --family chrome|firefox\n"
           "           and that family's --chrome-extension-id or --firefox-extension-id\n"
           "       " +
           program +
           " uninstall --executable PATH [--system | --folder DIR]\n"
           "       " +
           program +
           " status [--json] [--folder DIR --family chrome|firefox]\n"
           "       " +
           program +
           " --help\n"
           "\n"
           "install    writes " +
           file +
           " for each Chromium-family browser when a\n"
           "           --chrome-extension-id is given, and for each Firefox-family browser when a\n"
           "           --firefox-extension-id is given: only for browsers in use in this user's\n"
           "           home folder, or for all of them with --all. Says why it skips a browser,\n"
           "           e.g. one in use only as a Flatpak or Snap build.\n"
           "uninstall  removes the manifests whose path is PATH, and the folders that install\n"
           "           created for them as far as they are empty.\n"
           "status     tells for each browser whether it is in use and whether its manifests\n"
           "           (user and system) are sound, and where the agent's socket stands.\n"
           "\n"
           "--executable PATH           absolute path of the installed QuorvelNativeMessageHost\n"
           "--chrome-extension-id ID    32 letters a to p; may be repeated\n"
           "--firefox-extension-id ID   an id like name@domain or a {GUID}; may be repeated\n"
           "--all                       write for every browser, even one not in use\n"
           "--system                    for all users: the browsers' system folders instead of\n"
           "                            the user's (needs root)\n"
           "--folder DIR                a folder the table does not know, for a browser of\n"
           "                            --family\n"
           "--json                      status as JSON\n"
           "\n"
           "Exit status: 0 done and sound; 1 something failed, is broken or was not written;\n"
           "2 the command line was refused.\n"
           "\n"
           "Environment, for tests and packagers:\n"
           "MANIFEST_ROOT      a folder that stands in for / under the system folders\n"
           "MANIFEST_PLATFORM  Darwin or Linux: whose folders to use (default: this system's)\n";
}
