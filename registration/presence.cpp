#include "presence.h"

#include <filesystem>

#include "browserTable.h"
#include "ownFolders.h"

namespace {

bool isInUse(const std::string& profile) {
    std::error_code ignored;
    return std::filesystem::is_directory(profile, ignored) && !OwnFolders::holdsOnlyOurs(profile);
}

std::string sandboxNote(const std::string& home, const std::string& sandbox) {
    if (sandbox.rfind(".var/app/", 0) == 0) {
        return "only its Flatpak build is in use (" + home + "/" + sandbox +
               "), which cannot start a host installed outside its sandbox";
    }
    return "only its Snap build is in use (" + home + "/" + sandbox +
           "), which runs a host in its confinement, with a /tmp of its own away from the "
           "agent's socket";
}

}  // namespace

Presence Presence::of(const Browser& browser, const std::string& home) {
    for (const std::string& profile : browser.profiles) {
        if (isInUse(home + "/" + profile)) {
            return {Kind::InUse, home + "/" + profile};
        }
    }
    for (const std::string& sandbox : browser.sandboxed) {
        if (isInUse(home + "/" + sandbox)) {
            return {Kind::Sandboxed, sandboxNote(home, sandbox)};
        }
    }
    return {Kind::Missing, ""};
}
