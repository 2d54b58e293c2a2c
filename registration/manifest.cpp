#include "manifest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <regex>

#include <nlohmann/json.hpp>

using nlohmann::json;

const char* const Manifest::kHostName = "com.quorvel.nativemessagehost";
const char* const Manifest::kFileName = "com.quorvel.nativemessagehost.json";

namespace {

const char* const kDescription = "Quorvel native messaging host";
const char* const kChromeOriginPrefix = "chrome-extension://";

const char* allowedKey(Family family) {
    return family == Family::Chrome ? "allowed_origins" : "allowed_extensions";
}

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

bool isExecutableFile(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           access(path.c_str(), X_OK) == 0;
}

bool isAllowedEntry(Family family, const std::string& entry) {
    if (family == Family::Firefox) {
        return Manifest::isFirefoxId(entry);
    }
    const std::size_t prefix = std::strlen(kChromeOriginPrefix);
    return entry.size() > prefix + 1 && entry.compare(0, prefix, kChromeOriginPrefix) == 0 &&
           entry.back() == '/' &&
           Manifest::isChromeId(entry.substr(prefix, entry.size() - prefix - 1));
}

// The string member key of the manifest, or nothing with a problem noted when it is missing or
// not a string.
std::optional<std::string> stringMember(const json& manifest, const char* key,
                                        Manifest::Verdict& verdict) {
    const auto member = manifest.find(key);
    if (member == manifest.end()) {
        verdict.problems.push_back("it has no " + quoted(key));
        return std::nullopt;
    }
    if (!member->is_string()) {
        verdict.problems.push_back("its " + quoted(key) + " is not a string");
        return std::nullopt;
    }
    return member->get<std::string>();
}

// The fixed members: name and type exactly, a description of any text.
void judgeFixedMembers(const json& manifest, Manifest::Verdict& verdict) {
    const auto expect = [&](const char* key, const std::string& wanted) {
        const auto value = stringMember(manifest, key, verdict);
        if (value && *value != wanted) {
            verdict.problems.push_back("its " + std::string(key) + " is " + quoted(*value) +
                                       ", not " + quoted(wanted));
        }
    };
    expect("name", Manifest::kHostName);
    expect("type", "stdio");
    stringMember(manifest, "description", verdict);
}

void judgePath(const json& manifest, Manifest::Verdict& verdict) {
    const auto path = stringMember(manifest, "path", verdict);
    if (!path) {
        return;
    }
    verdict.path = *path;
    const bool absolute = !path->empty() && path->front() == '/';
    verdict.pathIsExecutable = absolute && isExecutableFile(*path);
    // What the path names is judged apart (HostExecutable): only the text is the manifest's.
    if (!absolute) {
        verdict.problems.push_back("its path is not absolute: '" + verdict.path + "'");
    }
}

void judgeIds(const json& manifest, Family family, Manifest::Verdict& verdict) {
    const char* key = allowedKey(family);
    const auto list = manifest.find(key);
    if (list == manifest.end()) {
        verdict.problems.push_back("it has no " + quoted(key));
        return;
    }
    if (!list->is_array()) {
        verdict.problems.push_back("its " + quoted(key) + " is not a list");
        return;
    }
    for (const json& entry : *list) {
        if (!entry.is_string()) {
            verdict.problems.push_back("its " + quoted(key) + " holds " + entry.dump() +
                                       ", which is not a string");
            continue;
        }
        verdict.ids.push_back(entry.get<std::string>());
        if (!isAllowedEntry(family, verdict.ids.back())) {
            verdict.malformedIds.push_back(verdict.ids.back());
            verdict.problems.push_back("malformed id: '" + verdict.ids.back() + "'");
        }
    }
    if (list->empty()) {
        verdict.problems.push_back("it allows no extension in " + quoted(key));
    }
}

// The parser's message without its "[json.exception.parse_error.101] " tag.
std::string parseErrorText(const json::parse_error& error) {
    const std::string text = error.what();
    const std::size_t tagEnd = text.find("] ");
    return tagEnd == std::string::npos ? text : text.substr(tagEnd + 2);
}

}  // namespace

std::string Manifest::fileIn(const std::string& folder) {
    return folder + "/" + kFileName;
}

std::string Manifest::compose(Family family, const std::string& executable,
                              const std::vector<std::string>& ids) {
    json allowed = json::array();
    for (const std::string& id : ids) {
        allowed.push_back(family == Family::Chrome ? kChromeOriginPrefix + id + "/" : id);
    }
    // ordered_json keeps the keys in the order people expect to read them.
    const nlohmann::ordered_json manifest = {{"name", kHostName},
                                             {"description", kDescription},
                                             {"path", executable},
                                             {"type", "stdio"},
                                             {allowedKey(family), allowed}};
    return manifest.dump(4) + "\n";
}

Manifest::Verdict Manifest::judge(const std::string& text, Family family) {
    Verdict verdict;
    json manifest;
    try {
        manifest = json::parse(text);
    } catch (const json::parse_error& error) {
        verdict.problems.push_back("it is not valid JSON: " + parseErrorText(error));
        return verdict;
    }
    if (!manifest.is_object()) {
        verdict.problems.push_back("it is not a JSON object");
        return verdict;
    }
    judgeFixedMembers(manifest, verdict);
    judgePath(manifest, verdict);
    judgeIds(manifest, family, verdict);
    return verdict;
}

std::string Manifest::read(const std::string& file, std::string& error) {
    const int descriptor = open(file.c_str(), O_RDONLY);
    std::string text;
    char buffer[4096];
    ssize_t count = 0;
    while (descriptor >= 0 && (count = ::read(descriptor, buffer, sizeof(buffer))) > 0) {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    if (descriptor < 0 || count < 0) {
        error = std::strerror(errno);
    }
    if (descriptor >= 0) {
        close(descriptor);
    }
    return text;
}

Manifest::Verdict Manifest::judgeFile(const std::string& file, Family family) {
    std::string error;
    const std::string text = read(file, error);
    if (!error.empty()) {
        Verdict verdict;
        verdict.problems.push_back("this user cannot read it: " + error);
        return verdict;
    }
    return judge(text, family);
}

std::string Manifest::registeredPath(const std::string& text) {
    const json manifest = json::parse(text, nullptr, false);
    if (!manifest.is_object() || !manifest.contains("path") || !manifest["path"].is_string()) {
        return "";
    }
    return manifest["path"].get<std::string>();
}

bool Manifest::isChromeId(const std::string& id) {
    static const std::regex pattern("[a-p]{32}");
    return std::regex_match(id, pattern);
}

bool Manifest::isFirefoxId(const std::string& id) {
    static const std::regex pattern(
        "[A-Za-z0-9._-]*@[A-Za-z0-9._-]+|\\{[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}\\}");
    return std::regex_match(id, pattern);
}
