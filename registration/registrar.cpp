#include "registrar.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "hostExecutable.h"
#include "manifest.h"
#include "ownFolders.h"
#include "presence.h"

namespace {

constexpr mode_t kManifestMode = 0644;

bool writeAll(int descriptor, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(descriptor, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return true;
}

// Writes the text to a temporary file in the folder and renames it to the manifest, so that a
// browser reads either the old manifest or the new one, never part of one. Any umask: 0644.
bool replaceManifest(const std::string& folder, const std::string& text, std::string& error) {
    std::string temporary = folder + "/." + Manifest::kFileName + ".XXXXXX";
    const int descriptor = mkstemp(temporary.data());
    if (descriptor < 0) {
        error = std::strerror(errno);
        return false;
    }
    const bool written = writeAll(descriptor, text) && fchmod(descriptor, kManifestMode) == 0 &&
                         fsync(descriptor) == 0;
    const int writeErrno = errno;
    const bool closed = close(descriptor) == 0;
    if (written && closed && rename(temporary.c_str(), Manifest::fileIn(folder).c_str()) == 0) {
        return true;
    }
    error = std::strerror(written && closed ? errno : writeErrno);
    unlink(temporary.c_str());
    return false;
}

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

void Registrar::write(const std::string& name, const std::string& folder, Family family) {
    std::string error;
    if (OwnFolders::create(folder, line.system, error) &&
        replaceManifest(folder, Manifest::compose(family, line.executable, line.ids(family)),
                        error)) {
        out << name << ": wrote " << Manifest::fileIn(folder) << "\n";
        ++written;
        return;
    }
    OwnFolders::release(folder);
    err << name << ": cannot write " << folder << ": " << error << "\n";
    failed = true;
}

void Registrar::installForUser(const Browser& browser) {
    const Presence presence = Presence::of(browser, line);
    if (presence.kind == Presence::Kind::InUse || line.all) {
        write(browser.name, line.inHome(browser, browser.userFolder), browser.family);
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
        write(browser.name, line.root + folder, browser.family);
    }
}

int Registrar::install() {
    if (!line.folder.empty()) {
        write(line.folder, line.folder, *line.folderFamily);
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

void Registrar::remove(const std::string& name, const std::string& folder) {
    const std::string file = Manifest::fileIn(folder);
    std::error_code ignored;
    if (std::filesystem::exists(std::filesystem::symlink_status(file, ignored))) {
        std::string error;
        const std::string registered = Manifest::registeredPath(Manifest::read(file, error));
        if (!samePath(registered, line.executable)) {
            out << name << ": left " << file << ", "
                << (!error.empty() ? "this user cannot read it: " + error
                    : registered.empty()
                        ? std::string("it names no executable (not a JSON object with a path)")
                        : "it registers another executable (" + registered + ")")
                << "\n";
            return;
        }
        if (unlink(file.c_str()) != 0) {
            err << name << ": cannot remove " << file << ": " << std::strerror(errno) << "\n";
            failed = true;
            return;
        }
        out << name << ": removed " << file << "\n";
        ++removed;
    }
    OwnFolders::release(folder);
}

int Registrar::uninstall() {
    if (!line.folder.empty()) {
        remove(line.folder, line.folder);
    } else {
        for (const Browser& browser : browserTable(line.platform)) {
            if (!line.system) {
                remove(browser.name, line.inHome(browser, browser.userFolder));
                continue;
            }
            for (const std::string& folder : browser.systemFolders) {
                remove(browser.name, line.root + folder);
            }
        }
    }
    if (removed == 0 && !failed) {
        out << "Nothing removed: no manifest here registers " << line.executable << ".\n";
    }
    return failed ? 1 : 0;
}
