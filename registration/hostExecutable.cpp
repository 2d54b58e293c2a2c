#include "hostExecutable.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "application.h"
#include "programRun.h"

namespace {

using Fault = HostExecutable::Fault;

// As long as a browser's user would wait; the host answers at once.
constexpr std::chrono::seconds kAnswerLimit(5);

// macOS runs an application opened from where it was downloaded from a randomised read-only
// copy under this folder (Gatekeeper path randomisation), gone once the application quits.
const char* const kTranslocationFolder = "/AppTranslocation/";

HostExecutable found(Fault fault, const std::string& problem, const std::string& fix) {
    HostExecutable result;
    result.fault = fault;
    result.problem = problem;
    result.fix = fix;
    return result;
}

const std::string kReinstall = "Run install again with --executable naming the host's file.";

// Asked of macOS's own xattr tool: the cross build's macOS headers carry no sys/xattr.h. Where
// there is no such tool, nothing can carry macOS's quarantine, and the answer is no.
bool isQuarantined(const std::string& path) {
    return ProgramRun::run({"/usr/bin/xattr", "-p", "com.apple.quarantine", path}, kAnswerLimit)
        .exitedWith(0);
}

// What the file does when asked --version, unless it answers as the host.
std::string versionProblem(const std::string& path) {
    const ProgramRun run = ProgramRun::run({path, "--version"}, kAnswerLimit);
    const std::string expected = std::string(Application::Version) + "\n";
    if (run.spawnError != 0) {
        return "the system does not run it: " + std::string(std::strerror(run.spawnError));
    }
    if (run.timedOut) {
        return "it did not answer --version within " + std::to_string(kAnswerLimit.count()) + " s";
    }
    if (run.exitStatus != 0 || run.output != expected) {
        const std::string answer = run.output.substr(0, run.output.find('\n'));
        return "it answers --version with '" + answer.substr(0, 80) + "' and exit status " +
               std::to_string(run.exitStatus) + ", not the host's " + Application::Version;
    }
    return "";
}

HostExecutable checkFile(const std::string& path, bool forAllUsers, const std::string& root) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return found(Fault::Missing,
                     "no file is at " + path + ": the host was moved or removed (" +
                         std::strerror(errno) + ")",
                     kReinstall);
    }
    if (S_ISDIR(status.st_mode)) {
        return found(Fault::Folder, path + " is a folder, not the host", kReinstall);
    }
    if (!S_ISREG(status.st_mode)) {
        return found(Fault::Special, path + " is a special file, not the host", kReinstall);
    }
    if (access(path.c_str(), X_OK) != 0 || (forAllUsers && (status.st_mode & S_IXOTH) == 0)) {
        return found(Fault::NotExecutable,
                     path + " may not be run by " + (forAllUsers ? "every user" : "this user"),
                     "Make it executable: chmod 755 '" + path + "'.");
    }
    if (forAllUsers && !foldersAboveOpenToAll(path, root)) {
        return found(Fault::ClosedToOthers, "a folder above " + path + " is closed to other users",
                     "Open the folders above it to all users (chmod o+x), or install the host "
                     "where every user can reach it and run install again.");
    }
    if (path.find(kTranslocationFolder) != std::string::npos) {
        return found(Fault::Translocated,
                     path + " is in an App Translocation folder, a copy that macOS removes",
                     "Move the application into /Applications with the Finder, open it once, "
                     "then run install again.");
    }
    if (isQuarantined(path)) {
        return found(Fault::Quarantined,
                     path + " carries the quarantine attribute, so macOS will not start it",
                     "Remove the attribute: xattr -d com.apple.quarantine '" + path + "'.");
    }
    return {};
}

}  // namespace

HostExecutable HostExecutable::check(const std::string& path, bool forAllUsers,
                                     const std::string& root) {
    HostExecutable result = checkFile(path, forAllUsers, root);
    if (result.fault != Fault::None || geteuid() == 0) {
        return result;
    }
    const std::string problem = versionProblem(path);
    if (!problem.empty()) {
        result = found(Fault::NotTheHost, path + " is not the host: " + problem,
                       "Run install again with --executable naming the Quorvel native messaging "
                       "host.");
    }
    result.versionAsked = true;
    return result;
}

std::string HostExecutable::notAskedNote(const std::string& path) {
    return "did not run " + path + " --version to tell that it is the host: not as root";
}

bool foldersAboveOpenToAll(const std::string& path, const std::string& root) {
    namespace fs = std::filesystem;
    struct stat status {};
    for (fs::path folder = fs::path(path).parent_path();
         folder.string().size() > root.size() && folder != folder.parent_path();
         folder = folder.parent_path()) {
        if (stat(folder.c_str(), &status) != 0 || (status.st_mode & S_IXOTH) == 0) {
            return false;
        }
    }
    return true;
}
