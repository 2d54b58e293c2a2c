#include "ownFolders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include "manifest.h"

namespace fs = std::filesystem;

const char* const OwnFolders::kRecordName = ".com.quorvel.nativemessagehost.created";

namespace {

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kRecordMode = 0644;

bool isRecorded(const fs::path& folder) {
    std::error_code ignored;
    return fs::is_regular_file(fs::symlink_status(folder / OwnFolders::kRecordName, ignored));
}

bool holdsOnlyItsRecord(const fs::path& folder) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        if (entry.path().filename() != OwnFolders::kRecordName) {
            return false;
        }
    }
    return !error;
}

// Makes one folder and its record; false with errno set on failure.
bool makeRecordedFolder(const fs::path& folder, bool forAllUsers) {
    if (mkdir(folder.c_str(), kFolderMode) != 0 ||
        (forAllUsers && chmod(folder.c_str(), kFolderMode) != 0)) {
        return false;
    }
    const int record =
        open((folder / OwnFolders::kRecordName).c_str(), O_WRONLY | O_CREAT | O_TRUNC, kRecordMode);
    if (record < 0) {
        return false;
    }
    const bool done = !forAllUsers || fchmod(record, kRecordMode) == 0;
    close(record);
    return done;
}

}  // namespace

bool OwnFolders::create(const std::string& folder, bool forAllUsers, std::string& error) {
    std::vector<fs::path> missing;
    std::error_code ignored;
    for (fs::path path = folder; !fs::exists(fs::symlink_status(path, ignored));
         path = path.parent_path()) {
        missing.push_back(path);
    }
    for (auto path = missing.rbegin(); path != missing.rend(); ++path) {
        if (!makeRecordedFolder(*path, forAllUsers)) {
            error = std::strerror(errno);
            error += *path == folder ? "" : " (making " + path->string() + ")";
            return false;
        }
    }
    if (!fs::is_directory(folder, ignored)) {
        error = "it is not a folder";
        return false;
    }
    return true;
}

bool OwnFolders::holdsOnlyOurs(const std::string& folder) {
    if (!isRecorded(folder)) {
        return false;
    }
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename().string();
        const bool ours = name == kRecordName || name == Manifest::kFileName ||
                          (entry.is_directory(error) && !entry.is_symlink(error) &&
                           holdsOnlyOurs(entry.path().string()));
        if (!ours) {
            return false;
        }
    }
    return !error;
}

void OwnFolders::release(const std::string& folder) {
    for (fs::path path = folder; isRecorded(path); path = path.parent_path()) {
        if (holdsOnlyItsRecord(path)) {
            unlink((path / kRecordName).c_str());
            rmdir(path.c_str());
        } else if (holdsOnlyOurs(path.string())) {
            return;
        } else {
            unlink((path / kRecordName).c_str());
        }
    }
}
