#include "presence.h"

#include <filesystem>

#include "browserTable.h"
#include "commandLine.h"
#include "ownFolders.h"

namespace {

bool isInUse(const std::string& profile) {
    std::error_code ignored;
    return std::filesystem::is_directory(profile, ignored) && !OwnFolders::holdsOnlyOurs(profile);
}

std::string sandboxNote(const std::string& sandbox, const std::string& folder) {
    if (sandbox.rfind(".var/app/", 0) == 0) {
        return "only its Flatpak build is in use (" + folder +
               "), which cannot start a host installed outside its sandbox";
    }
    return "only its Snap build is in use (" + folder +
           "), which runs a host in its confinement, with a /tmp of its own away from the "
           "agent's socket";
}

}  // namespace

Presence Presence::of(const Browser& browser, const CommandLine& line) {
    for (const std::string& profile : browser.profiles) {
        if (isInUse(line.inHome(browser, profile))) {
            return {Kind::InUse, line.inHome(browser, profile)};
        }
    }
    for (const std::string& sandbox : browser.sandboxed) {
        if (isInUse(line.inHome(browser, sandbox))) {
            return {Kind::Sandboxed, sandboxNote(sandbox, line.inHome(browser, sandbox))};
        }
    }
    return {Kind::Missing, ""};
}
