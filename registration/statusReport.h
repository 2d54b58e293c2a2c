#pragma once

#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

#include "browserTable.h"
#include "commandLine.h"

// Tells where the host is registered and whether each manifest would work, browser by browser,
// and where this user's agent stands; as text or as JSON.
class StatusReport {
  public:
    StatusReport(const CommandLine& line, std::ostream& out);

    // The exit status: 0 when a manifest was found and every one found is sound and nobody
    // else holds the agent's socket, 1 otherwise.
    int run();

  private:
    nlohmann::json browserEntry(const Browser& browser) const;
    nlohmann::json manifestEntry(const std::string& scope, const std::string& folder,
                                 Family family) const;
    nlohmann::json agentEntry() const;
    void printText(const nlohmann::json& report) const;

    const CommandLine& line;
    std::ostream& out;
};
