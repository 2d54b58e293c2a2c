#include "commandLine.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>

#include "application.h"
#include "hostExecutable.h"
#include "manifest.h"

namespace {

const char* const kProgram = "QuorvelHostRegistration";
const std::string kConfigPrefix = ".config/";
// A mistyped name is this many letter edits from the one meant, or fewer: a swap is two.
constexpr std::size_t kNearEdits = 2;

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

// The folder that the variable names when it is absolute, as Chromium's GetXDGDirectory and
// chrome_paths_linux.cc take it; otherwise the fallback.
std::string absoluteOr(const char* variable, const std::string& fallback) {
    const std::string value = withoutTrailingSlash(environment(variable));
    return isAbsolute(value) ? value : fallback;
}

void require(bool condition, const std::string& complaint) {
    if (!condition) {
        throw UsageError(complaint);
    }
}

// The number of single-letter edits that turn one word into the other.
std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// Every name the command line knows: the commands and their long options.
std::vector<std::string> knownNames(CLI::App& app) {
    std::vector<std::string> names = {"--help", "--version"};
    for (CLI::App* command : app.get_subcommands({})) {
        names.push_back(command->get_name());
        for (const CLI::Option* option : command->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                names.push_back("--" + name);
            }
        }
    }
    return names;
}

// " (did you mean X?)" for the first argument that is no known name but near one.
std::string suggestion(CLI::App& app, const std::vector<std::string>& arguments) {
    const std::vector<std::string> names = knownNames(app);
    for (const std::string& argument : arguments) {
        const std::string word = argument.substr(0, argument.find('='));
        if (std::find(names.begin(), names.end(), word) != names.end()) {
            continue;
        }
        for (const std::string& name : names) {
            if (editDistance(word, name) <= kNearEdits) {
                return " (did you mean " + name + "?)";
            }
        }
    }
    return "";
}

void addIds(CLI::App& command, CommandLine& line) {
    command
        .add_option("--chrome-extension-id", line.chromeIds,
                    "a Chromium-family extension's id, 32 letters a to p; may be repeated")
        ->allow_extra_args(false);
    command
        .add_option("--firefox-extension-id", line.firefoxIds,
                    "a Firefox extension's id, like name@domain or a {GUID}; may be repeated")
        ->allow_extra_args(false);
}

void addFolder(CLI::App& command, CommandLine& line, std::string& family) {
    command.add_option("--folder", line.folder, "a folder the table does not know");
    command.add_option("--family", family, "chrome or firefox: the family of --folder's browser");
}

void checkExecutable(const CommandLine& line) {
    require(!line.executable.empty(), "--executable needs a value");
    require(isAbsolute(line.executable),
            "the executable path must be absolute: " + line.executable);
    require(std::none_of(line.executable.begin(), line.executable.end(),
                         [](unsigned char c) { return c < 0x20 || c == 0x7f; }),
            "the executable path contains a control character");
}

void checkIds(const CommandLine& line) {
    for (const std::string& id : line.chromeIds) {
        require(Manifest::isChromeId(id),
                "malformed --chrome-extension-id (32 letters a to p): " + id);
    }
    for (const std::string& id : line.firefoxIds) {
        require(Manifest::isFirefoxId(id),
                "malformed --firefox-extension-id (name@domain or {GUID}): " + id);
    }
}

void checkFolder(CommandLine& line, const std::string& family) {
    require(family.empty() || family == "chrome" || family == "firefox",
            "--family is chrome or firefox, not " + family);
    if (!family.empty()) {
        line.folderFamily = family == "chrome" ? Family::Chrome : Family::Firefox;
    }
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
    const std::string name = familyName(*line.folderFamily);
    require(line.action != CommandLine::Action::Install || !line.ids(*line.folderFamily).empty(),
            "--family " + name + " needs a --" + name + "-extension-id");
}

void checkSystem(const CommandLine& line) {
    if (!line.system) {
        return;
    }
    require(!line.all, "--system writes for every browser already; drop --all");
    require(!line.root.empty() || geteuid() == 0,
            "--system writes into the system folders and needs root: run it with sudo");
}

void readEnvironment(CommandLine& line) {
    line.home = withoutTrailingSlash(environment("HOME"));
    line.root = withoutTrailingSlash(environment("MANIFEST_ROOT"));
    if (line.root == "/") {
        line.root.clear();
    }
    line.platform = environment("MANIFEST_PLATFORM");
    if (line.platform.empty()) {
        line.platform = runningPlatform();
    }
    require(isAbsolute(line.home), "HOME must be an absolute path");
    require(line.root.empty() || isAbsolute(line.root), "MANIFEST_ROOT must be an absolute path");
    require(line.platform == "Darwin" || line.platform == "Linux",
            "no browser table for the platform '" + line.platform +
                "' (MANIFEST_PLATFORM is Darwin or Linux)");
    line.configHome = absoluteOr("XDG_CONFIG_HOME", line.home + "/.config");
    line.chromeConfigHome = absoluteOr("CHROME_CONFIG_HOME", line.configHome);
}

const char* const kFooter =
    "Exit status: 0 done, and every browser in use would start the host; 1 something failed, "
    "was not written, or a browser in use would not start the host; 2 the command line was "
    "refused.\n\n"
    "Environment, for tests and packagers: MANIFEST_ROOT, a folder that stands in for / under "
    "the system and policy folders; MANIFEST_PLATFORM, Darwin or Linux: whose folders to use "
    "(default: this system's).";

}  // namespace

CommandLine CommandLine::parse(const std::vector<std::string>& arguments, std::ostream& out) {
    CommandLine line;
    std::string family;
    CLI::App app("Registers the Quorvel native messaging host with the browsers.", kProgram);
    app.set_version_flag("--version", Application::Version);
    app.require_subcommand(1);
    app.footer(kFooter);
    CLI::App* install = app.add_subcommand(
        "install",
        "Writes the host's manifest for each browser in use (or every one with --all) of each "
        "family given an extension id, and says why it skips a browser.");
    install
        ->add_option("--executable", line.executable,
                     "absolute path of the installed QuorvelNativeMessageHost")
        ->required();
    addIds(*install, line);
    install->add_flag("--all", line.all, "write for every browser, even one not in use");
    install->add_flag("--system", line.system,
                      "for all users: the browsers' system folders (needs root)");
    addFolder(*install, line, family);
    CLI::App* uninstall = app.add_subcommand(
        "uninstall",
        "Removes the manifests whose path is the executable, and the folders install made.");
    uninstall->add_option("--executable", line.executable, "the path the manifests name")
        ->required();
    uninstall->add_flag("--system", line.system, "from the system folders (needs root)");
    uninstall->add_option("--folder", line.folder, "from this folder alone");
    CLI::App* status = app.add_subcommand(
        "status",
        "Tells, per browser, whether it would start the host for the extension and why not, "
        "with the error the extension gets and the fix; and where the agent stands.");
    status->add_flag("--json", line.json, "as JSON");
    addIds(*status, line);
    addFolder(*status, line, family);

    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::CallForVersion&) {
        out << Application::Version << "\n";
        return line;
    } catch (const CLI::Success& answered) {
        app.exit(answered, out, out);
        return line;
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what() + suggestion(app, arguments));
    }
    line.action = install->parsed()     ? Action::Install
                  : uninstall->parsed() ? Action::Uninstall
                                        : Action::Status;
    readEnvironment(line);
    if (line.action != Action::Status) {
        checkExecutable(line);
    }
    if (line.action == Action::Install) {
        const HostExecutable host = HostExecutable::check(line.executable, false);
        require(host.fault == HostExecutable::Fault::None, "refused --executable: " + host.problem);
    }
    require(line.action != Action::Install || !line.chromeIds.empty() || !line.firefoxIds.empty(),
            "install needs at least one --chrome-extension-id or --firefox-extension-id");
    checkIds(line);
    checkFolder(line, family);
    checkSystem(line);
    return line;
}

const std::vector<std::string>& CommandLine::ids(Family family) const {
    return family == Family::Chrome ? chromeIds : firefoxIds;
}

std::string CommandLine::inHome(const Browser& browser, const std::string& relative) const {
    if (platform != "Linux" || relative.compare(0, kConfigPrefix.size(), kConfigPrefix) != 0) {
        return home + "/" + relative;
    }
    const std::string& base = browser.family == Family::Chrome ? chromeConfigHome : configHome;
    return base + "/" + relative.substr(kConfigPrefix.size());
}
