#include "registrar.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "folderWalk.h"
#include "hostExecutable.h"
#include "manifest.h"
#include "ownFolders.h"
#include "presence.h"
#include "runLock.h"

namespace {

constexpr mode_t kManifestMode = 0644;

bool samePath(const std::string& a, const std::string& b) {
    namespace fs = std::filesystem;
    return fs::path(a).lexically_normal() == fs::path(b).lexically_normal();
}

// Why nothing was written when browsers are in use, and what to do, as the lines above said.
std::string nothingWrittenFor(bool sandboxed, bool unasked) {
    std::string why = sandboxed ? "sandboxed builds that cannot start the host" : "";
    std::string what = sandboxed ? "Install the browser from the distribution's or its maker's "
                                   "package, start it once, then run install again."
                                 : "";
    if (unasked) {
        why += (sandboxed ? ", or " : "") + std::string("of a family given no extension id");
        what += (sandboxed ? " " : "") + std::string("Give the extension's id of their family.");
    }
    return "Nothing written: the browsers in use are " + why + " (see above). " + what;
}

}  // namespace

Registrar::Registrar(const CommandLine& line, std::ostream& out, std::ostream& err)
    : line(line), out(out), err(err) {}

bool Registrar::lock(RunLock& runLock) {
    std::string error;
    if (!runLock.acquire(error)) {
        err << "Nothing done: " << error << "\n";
        return false;
    }
    return true;
}

bool Registrar::foldersAreSafe() {
    if (geteuid() != 0 || (line.folder.empty() && !line.system)) {
        return true;
    }
    std::vector<std::pair<std::string, std::string>> folders;  // root and folder
    if (!line.folder.empty()) {
        folders.emplace_back("", line.folder);
    } else {
        for (const Browser& browser : browserTable(line.platform)) {
            for (const std::string& folder : browser.systemFolders) {
                folders.emplace_back(line.root, line.root + folder);
            }
        }
    }
    for (const auto& [root, folder] : folders) {
        const std::string changeable = OwnFolders::changeableByOthers(root, folder);
        if (!changeable.empty()) {
            err << "Nothing done: " << changeable
                << " can be changed by a user other than root, who could redirect root's writes "
                   "below it.\n";
            return false;
        }
    }
    return true;
}

std::string Registrar::startFor(const std::string& folder) const {
    const std::string home = line.home + "/";
    return folder.compare(0, home.size(), home) == 0 ? line.home : "";
}

void Registrar::write(const std::string& name, const std::string& root, const std::string& folder,
                      Family family) {
    std::string error;
    const NoFollowFolder target = OwnFolders::create(root, folder, line.system, error);
    if (target.isOpen() &&
        target.replaceFile(Manifest::kFileName,
                           Manifest::compose(family, line.executable, line.ids(family)),
                           kManifestMode)) {
        out << name << ": wrote " << Manifest::fileIn(folder) << "\n";
        ++written;
        return;
    }
    if (error.empty()) {
        error = std::strerror(errno);
    }
    OwnFolders::release(root, folder);
    err << name << ": cannot write " << folder << ": " << error << "\n";
    failed = true;
}

void Registrar::installForUser(const Browser& browser) {
    const Presence presence = Presence::of(browser, line);
    if (presence.kind == Presence::Kind::InUse || line.all) {
        const std::string folder = line.inHome(browser, browser.userFolder);
        write(browser.name, startFor(folder), folder, browser.family);
    } else if (presence.kind == Presence::Kind::Sandboxed) {
        out << browser.name << ": skipped, " << presence.note << "\n";
        ++sandboxed;
    } else {
        out << browser.name << ": skipped, not in use (nothing in "
            << line.inHome(browser, browser.profiles.front()) << ")\n";
    }
}

void Registrar::installForSystem(const Browser& browser) {
    if (!browser.readsSystemOf.empty() || !browser.readsAllOf.empty()) {
        out << browser.name << ": reads the system folder of "
            << browser.readsSystemOf + browser.readsAllOf << "\n";
    } else if (browser.systemFolders.empty()) {
        out << browser.name << ": skipped, no system folder of it is known\n";
    }
    for (const std::string& folder : browser.systemFolders) {
        write(browser.name, line.root, line.root + folder, browser.family);
    }
}

int Registrar::install() {
    RunLock runLock;
    if (!lock(runLock) || !foldersAreSafe()) {
        return 1;
    }
    if (!line.folder.empty()) {
        write(line.folder, "", line.folder, *line.folderFamily);
        return failed ? 1 : 0;
    }
    for (const Browser& browser : browserTable(line.platform)) {
        if (line.ids(browser.family).empty()) {
            out << browser.name << ": skipped, no --" << familyName(browser.family)
                << "-extension-id given\n";
            unasked += Presence::of(browser, line).kind == Presence::Kind::InUse ? 1 : 0;
        } else if (line.system) {
            installForSystem(browser);
        } else {
            installForUser(browser);
        }
    }
    if (failed) {
        out << "Some manifests could not be written (see above): those browsers will not find "
               "the host.\n";
    } else if (written == 0 && (sandboxed > 0 || unasked > 0)) {
        out << nothingWrittenFor(sandboxed > 0, unasked > 0) << "\n";
    } else if (written == 0) {
        out << "Nothing written: no browser is in use in " << line.home
            << ". Start the browser once, then run install again, or add --all to write for "
               "every browser.\n";
    }
    if (geteuid() == 0) {
        out << "Note: " << HostExecutable::notAskedNote(line.executable) << ".\n";
    }
    return failed || written == 0 ? 1 : 0;
}

void Registrar::remove(const std::string& name, const std::string& root,
                       const std::string& folder) {
    const std::string file = Manifest::fileIn(folder);
    FolderWalk walk(root, folder);
    const bool reached = walk.walkOn();
    const NoFollowFolder& here = walk.deepest().folder;
    struct stat status {};
    if (reached && here.statusOf(Manifest::kFileName, status)) {
        std::string problem;
        const std::string registered =
            Manifest::registeredPath(Manifest::readIn(here.fd(), Manifest::kFileName, problem));
        if (!samePath(registered, line.executable)) {
            out << name << ": left " << file << ", "
                << (!problem.empty() ? problem
                    : registered.empty()
                        ? std::string("it names no executable (not a JSON object with a path)")
                        : "it registers another executable (" + registered + ")")
                << "\n";
            return;
        }
        if (!here.removeFile(Manifest::kFileName)) {
            err << name << ": cannot remove " << file << ": " << std::strerror(errno) << "\n";
            failed = true;
            return;
        }
        out << name << ": removed " << file << "\n";
        ++removed;
    }
    OwnFolders::release(root, folder);
}

int Registrar::uninstall() {
    RunLock runLock;
    if (!lock(runLock) || !foldersAreSafe()) {
        return 1;
    }
    if (!line.folder.empty()) {
        remove(line.folder, "", line.folder);
    } else {
        for (const Browser& browser : browserTable(line.platform)) {
            if (!line.system) {
                const std::string folder = line.inHome(browser, browser.userFolder);
                remove(browser.name, startFor(folder), folder);
                continue;
            }
            for (const std::string& folder : browser.systemFolders) {
                remove(browser.name, line.root, line.root + folder);
            }
        }
    }
    if (removed == 0 && !failed) {
        out << "Nothing removed: no manifest here registers " << line.executable << ".\n";
    }
    return failed ? 1 : 0;
}
