#pragma once

#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "browserTable.h"

// A command line the tool refuses; what() says why, in one line.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What one run of the tool is asked to do, from its arguments and environment, checked so that
// nothing is written for a command line that is refused.
struct CommandLine {
    enum class Action { Answered, Install, Uninstall, Status };

    Action action = Action::Answered;  // Answered: --help or --version was printed
    std::string executable;
    std::vector<std::string> chromeIds;
    std::vector<std::string> firefoxIds;
    bool all = false;
    bool system = false;
    bool json = false;
    std::string folder;                  // a folder the table does not know, "" for the table's
    std::optional<Family> folderFamily;  // with --folder: the family of its manifest
    std::string home;                    // $HOME, without a trailing slash
    std::string configHome;              // $XDG_CONFIG_HOME when absolute, else ~/.config (Linux)
    std::string chromeConfigHome;        // $CHROME_CONFIG_HOME when absolute, else configHome
    std::string root;      // MANIFEST_ROOT, stands in for "/" under the system folders
    std::string platform;  // MANIFEST_PLATFORM or the running system's: "Darwin" or "Linux"

    // Prints --help and --version to out. Throws UsageError for arguments or an environment
    // that it refuses; for an unknown name the message suggests the nearest known one.
    static CommandLine parse(const std::vector<std::string>& arguments, std::ostream& out);

    // The ids given for a family.
    const std::vector<std::string>& ids(Family family) const;

    // A folder of the browser's table row under this user's home: on Linux, ".config/" stands
    // for the configuration folder that the browser reads.
    std::string inHome(const Browser& browser, const std::string& relative) const;
};
