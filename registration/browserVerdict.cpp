#include "browserVerdict.h"

#include <sys/stat.h>

#include <algorithm>

#include "manifest.h"

namespace {

using Fault = HostExecutable::Fault;

// What the extension gets. Chromium: extensions/browser/api/messaging/native_message_host.cc
// (kNotFoundError ...) for the results of native_process_launcher.cc; Firefox:
// NativeMessaging.sys.mjs when NativeManifests.sys.mjs finds no manifest that fits.
const char* const kNotFound = "Specified native messaging host not found.";
const char* const kForbidden = "Access to the specified native messaging host is forbidden.";
const char* const kProhibited =
    "Access to the native messaging host was disabled by the system administrator.";
const char* const kFailedToStart = "Failed to start native messaging host.";
const char* const kHostExited = "Native host has exited.";
const char* const kNoSuchApplication = "No such native application com.quorvel.nativemessagehost";
const char* const kUnexpected = "An unexpected error occurred";

const char* const kInstallFix =
    "Run install with the extension's id (--chrome-extension-id or --firefox-extension-id).";
const char* const kRewriteFix = "Run install again: it writes the manifest anew.";

BrowserVerdict refused(const std::string& error, const std::string& reason, const std::string& fix,
                       const std::string& reads = "") {
    BrowserVerdict verdict;
    verdict.browserError = error;
    verdict.reason = reason;
    verdict.fix = fix;
    verdict.reads = reads;
    return verdict;
}

bool exists(const std::string& file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0;
}

std::string allowedEntry(Family family, const std::string& id) {
    return family == Family::Chrome ? "chrome-extension://" + id + "/" : id;
}

std::string listed(const std::vector<std::string>& files) {
    std::string text;
    for (const std::string& file : files) {
        text += (text.empty() ? "" : " or ") + file;
    }
    return text;
}

std::string idOption(Family family, const std::string& id) {
    return std::string("--") + familyName(family) + "-extension-id " + id;
}

// The error once the browser tries to start what the manifest names. Chromium checks that the
// file exists, then starts it: on Linux a child that fails to run it exits at once, on macOS the
// start itself fails (base/process/launch_posix.cc, launch_mac.cc). Firefox's Subprocess
// refuses what is not an executable file before it starts anything.
std::string launchError(const BrowserVerdict::Lookup& lookup, Fault fault) {
    if (lookup.family == Family::Firefox) {
        return kUnexpected;
    }
    if (fault == Fault::Missing || fault == Fault::Translocated) {
        return kNotFound;
    }
    const bool refusedAtStart = fault == Fault::Folder || fault == Fault::Special ||
                                fault == Fault::NotExecutable || fault == Fault::ClosedToOthers;
    return refusedAtStart && lookup.platform == "Darwin" ? kFailedToStart : kHostExited;
}

BrowserVerdict judgeExecutable(const BrowserVerdict::Lookup& lookup, const std::string& file,
                               const Manifest::Verdict& manifest) {
    const bool forAllUsers = std::find(lookup.systemFiles.begin(), lookup.systemFiles.end(),
                                       file) != lookup.systemFiles.end();
    const HostExecutable host = lookup.executable(manifest.path, forAllUsers);
    if (host.fault != Fault::None) {
        return refused(launchError(lookup, host.fault), host.problem, host.fix, file);
    }
    BrowserVerdict verdict;
    verdict.starts = true;
    verdict.reads = file;
    return verdict;
}

// Whether the manifest lets the extension (any, for "") connect; refused when not.
bool allows(const Manifest::Verdict& manifest, Family family, const std::string& id) {
    return id.empty() ? !manifest.ids.empty()
                      : std::find(manifest.ids.begin(), manifest.ids.end(),
                                  allowedEntry(family, id)) != manifest.ids.end();
}

// Chromium: native_process_launcher_posix.cc FindManifest (the user folder first unless the
// policy turns it off, then the system folder; the first file there is read, sound or not),
// then native_process_launcher.cc (a broken manifest is "not found", an origin it does not
// allow is "forbidden").
BrowserVerdict decideChromium(const BrowserVerdict::Lookup& lookup, const std::string& id) {
    const BrowserPolicy& policy = lookup.policy;
    if (policy.forbids(Manifest::kHostName)) {
        return refused(kProhibited,
                       "an administrator's policy forbids the host: NativeMessagingBlocklist "
                       "holds its name or \"*\" (" +
                           listed(policy.files) + ")",
                       "Ask the administrator to add com.quorvel.nativemessagehost to the "
                       "NativeMessagingAllowlist policy.");
    }
    std::vector<std::string> candidates = lookup.systemFiles;
    if (policy.userLevelHosts && !lookup.userFile.empty()) {
        candidates.insert(candidates.begin(), lookup.userFile);
    }
    const auto file = std::find_if(candidates.begin(), candidates.end(), exists);
    if (file == candidates.end()) {
        if (!policy.userLevelHosts && exists(lookup.userFile)) {
            return refused(kNotFound,
                           "the policy NativeMessagingUserLevelHosts is false (" +
                               listed(policy.files) + "), so it does not read " + lookup.userFile +
                               ", and no system folder holds a manifest",
                           "Have an administrator register the host for all users: sudo "
                           "QuorvelHostRegistration install --system with the same arguments.");
        }
        return refused(kNotFound, "it finds no manifest of the host (" + listed(candidates) + ")",
                       kInstallFix);
    }
    const Manifest::Verdict manifest = Manifest::judgeFile(*file, Family::Chrome);
    if (!manifest.problems.empty()) {
        return refused(kNotFound, "the manifest it reads is broken: " + manifest.problems.front(),
                       kRewriteFix, *file);
    }
    if (!allows(manifest, Family::Chrome, id)) {
        return refused(kForbidden,
                       "the manifest it reads does not allow " + allowedEntry(Family::Chrome, id),
                       "Run install again with " + idOption(Family::Chrome, id) +
                           ", beside the ids it allows now.",
                       *file);
    }
    return judgeExecutable(lookup, *file, manifest);
}

// Firefox: NativeManifests.sys.mjs tries the user folder, then the system folder, and skips a
// manifest that is broken or does not allow the extension; none left is "No such native
// application".
BrowserVerdict decideFirefox(const BrowserVerdict::Lookup& lookup, const std::string& id) {
    std::vector<std::string> candidates = lookup.systemFiles;
    candidates.insert(candidates.begin(), lookup.userFile);
    BrowserVerdict skipped =
        refused(kNoSuchApplication, "it finds no manifest of the host (" + listed(candidates) + ")",
                kInstallFix);
    bool noted = false;
    for (const std::string& file : candidates) {
        if (!exists(file)) {
            continue;
        }
        const Manifest::Verdict manifest = Manifest::judgeFile(file, Family::Firefox);
        if (manifest.problems.empty() && allows(manifest, Family::Firefox, id)) {
            return judgeExecutable(lookup, file, manifest);
        }
        if (!noted) {
            skipped =
                manifest.problems.empty()
                    ? refused(kNoSuchApplication,
                              "the manifest " + file + " does not allow " + id +
                                  ", and no other one fits",
                              "Run install again with " + idOption(Family::Firefox, id) +
                                  ", beside the ids it allows now.")
                    : refused(kNoSuchApplication,
                              "the manifest " + file + " is broken: " + manifest.problems.front(),
                              kRewriteFix);
            noted = true;
        }
    }
    return skipped;
}

}  // namespace

BrowserVerdict BrowserVerdict::decide(const Lookup& lookup, const std::vector<std::string>& ids) {
    const auto decideFor = [&](const std::string& id) {
        return lookup.family == Family::Chrome ? decideChromium(lookup, id)
                                               : decideFirefox(lookup, id);
    };
    if (ids.empty()) {
        return decideFor("");
    }
    BrowserVerdict verdict;
    for (const std::string& id : ids) {
        verdict = decideFor(id);
        if (!verdict.starts) {
            break;
        }
    }
    return verdict;
}

BrowserVerdict BrowserVerdict::sandboxed(Family family, const std::string& note) {
    return refused(family == Family::Chrome ? kNotFound : kNoSuchApplication, note,
                   "Install the browser from the distribution's or its maker's package, start "
                   "it once, then run install again.");
}
