#pragma once

#include <optional>
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
    enum class Action { Help, Install, Uninstall, Status };

    Action action = Action::Help;
    std::string executable;
    std::vector<std::string> chromeIds;
    std::vector<std::string> firefoxIds;
    bool all = false;
    bool system = false;
    bool json = false;
    std::string folder;                  // a folder the table does not know, "" for the table's
    std::optional<Family> folderFamily;  // with --folder: the family of its manifest
    std::string home;                    // $HOME, without a trailing slash
    std::string root;      // MANIFEST_ROOT, stands in for "/" under the system folders
    std::string platform;  // MANIFEST_PLATFORM or the running system's: "Darwin" or "Linux"

    // Throws UsageError for arguments or an environment that it refuses.
    static CommandLine parse(const std::vector<std::string>& arguments);

    // The ids given for a family.
    const std::vector<std::string>& ids(Family family) const;

    static std::string usage(const std::string& program);
};
