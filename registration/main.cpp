// Registers the host with browsers: writes its native messaging manifest where each browser
// looks for it, removes what an earlier install wrote, and reports whether each manifest would
// work and where the agent stands.
#include <iostream>
#include <string>
#include <vector>

#include "commandLine.h"
#include "registrar.h"
#include "statusReport.h"
#include "utf8Output.h"

namespace {

constexpr int kUsageStatus = 2;

}  // namespace

int main(int argc, char** argv) {
    const std::string program = "QuorvelHostRegistration";
    Utf8Output outText(std::cout);
    Utf8Output errorText(std::cerr);
    std::ostream out(&outText);
    std::ostream err(&errorText);
    CommandLine line;
    try {
        line = CommandLine::parse(std::vector<std::string>(argv + 1, argv + argc), out);
    } catch (const UsageError& error) {
        err << program << ": " << error.what() << "\nRun '" << program << " --help' for usage.\n";
        return kUsageStatus;
    }
    Registrar registrar(line, out, err);
    switch (line.action) {
        case CommandLine::Action::Install:
            return registrar.install();
        case CommandLine::Action::Uninstall:
            return registrar.uninstall();
        case CommandLine::Action::Status:
            return StatusReport(line, out).run();
        case CommandLine::Action::Answered:
            break;
    }
    return 0;
}
