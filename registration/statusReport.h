#pragma once

#include <map>
#include <ostream>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "browserTable.h"
#include "browserVerdict.h"
#include "commandLine.h"
#include "hostExecutable.h"

// Tells, browser by browser, whether the browser would start the host for the extension, and if
// not, the error the extension gets, why, and the fix; where the host is registered and whether
// each manifest would work; and where this user's agent stands; as text or as JSON.
class StatusReport {
  public:
    StatusReport(const CommandLine& line, std::ostream& out);

    // The exit status: 0 when a browser is in use (or --folder is given), every browser in use
    // would start the host, and nobody else holds the agent's socket; 1 otherwise.
    int run();

  private:
    nlohmann::json browserEntry(const Browser& browser);
    nlohmann::json folderEntry();
    nlohmann::json manifestEntry(const std::string& scope, const std::string& folder,
                                 Family family);
    // A lookup of the family that reads no folder yet, checking executables through this report.
    BrowserVerdict::Lookup emptyLookup(Family family);
    BrowserVerdict::Lookup lookupOf(const Browser& browser);
    // Each executable is checked once per run, for this user or for all.
    const HostExecutable& executable(const std::string& path, bool forAllUsers);
    nlohmann::json agentEntry() const;
    void printText(const nlohmann::json& report) const;

    const CommandLine& line;
    std::ostream& out;
    std::map<std::pair<std::string, bool>, HostExecutable> executables;
    std::vector<std::string> notes;  // said once, after the browsers
};
