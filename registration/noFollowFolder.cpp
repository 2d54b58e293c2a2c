#include "noFollowFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <random>
#include <utility>

namespace {

// O_NONBLOCK: a FIFO where a folder should be must not make the open wait.
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;
constexpr int kNewFileFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
constexpr mode_t kPrivateMode = 0600;
constexpr int kTemporaryNameTries = 100;

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

// Writes, sets the mode and flushes the new file, then closes it; false with errno on failure.
bool fillAndClose(int descriptor, const std::string& text, mode_t mode) {
    const bool filled =
        writeAll(descriptor, text) && fchmod(descriptor, mode) == 0 && fsync(descriptor) == 0;
    const int fillErrno = errno;
    const bool closed = close(descriptor) == 0;
    if (!filled) {
        errno = fillErrno;
    }
    return filled && closed;
}

}  // namespace

NoFollowFolder::~NoFollowFolder() {
    if (descriptor >= 0) {
        close(descriptor);
    }
}

NoFollowFolder::NoFollowFolder(NoFollowFolder&& other) noexcept
    : descriptor(std::exchange(other.descriptor, -1)) {}

NoFollowFolder& NoFollowFolder::operator=(NoFollowFolder&& other) noexcept {
    std::swap(descriptor, other.descriptor);
    return *this;
}

NoFollowFolder NoFollowFolder::open(const std::string& path) {
    return NoFollowFolder(::open(path.empty() ? "/" : path.c_str(), kFolderFlags));
}

NoFollowFolder NoFollowFolder::child(const std::string& name) const {
    // ".." would climb out of the folder: it is refused like a link.
    if (name == "..") {
        errno = ELOOP;
        return NoFollowFolder();
    }
    return NoFollowFolder(openat(descriptor, name.c_str(), kFolderFlags | O_NOFOLLOW));
}

NoFollowFolder NoFollowFolder::parent() const {
    return NoFollowFolder(openat(descriptor, "..", kFolderFlags));
}

bool NoFollowFolder::makeFolder(const std::string& name, mode_t mode) const {
    return mkdirat(descriptor, name.c_str(), mode) == 0;
}

bool NoFollowFolder::removeFolder(const std::string& name) const {
    return unlinkat(descriptor, name.c_str(), AT_REMOVEDIR) == 0;
}

bool NoFollowFolder::removeFile(const std::string& name) const {
    return unlinkat(descriptor, name.c_str(), 0) == 0;
}

bool NoFollowFolder::createFile(const std::string& name, const std::string& text,
                                mode_t mode) const {
    const int file = openat(descriptor, name.c_str(), kNewFileFlags, kPrivateMode);
    if (file < 0) {
        return false;
    }
    if (fillAndClose(file, text, mode)) {
        return true;
    }
    const int failure = errno;
    removeFile(name);
    errno = failure;
    return false;
}

bool NoFollowFolder::replaceFile(const std::string& name, const std::string& text,
                                 mode_t mode) const {
    std::random_device random;
    std::string temporary;
    int file = -1;
    for (int tries = 0; file < 0 && tries < kTemporaryNameTries; ++tries) {
        temporary = "." + name + "." + std::to_string(random());
        file = openat(descriptor, temporary.c_str(), kNewFileFlags, kPrivateMode);
        if (file < 0 && errno != EEXIST) {
            return false;
        }
    }
    if (file < 0) {
        return false;
    }
    if (fillAndClose(file, text, mode) &&
        renameat(descriptor, temporary.c_str(), descriptor, name.c_str()) == 0) {
        return true;
    }
    const int failure = errno;
    removeFile(temporary);
    errno = failure;
    return false;
}

bool NoFollowFolder::setMode(mode_t mode) const {
    return fchmod(descriptor, mode) == 0;
}

bool NoFollowFolder::status(struct stat& status) const {
    return fstat(descriptor, &status) == 0;
}

bool NoFollowFolder::statusOf(const std::string& name, struct stat& status) const {
    return fstatat(descriptor, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

bool NoFollowFolder::linkText(const std::string& name, std::string& text) const {
    std::vector<char> buffer(PATH_MAX);
    const ssize_t length = readlinkat(descriptor, name.c_str(), buffer.data(), buffer.size());
    if (length < 0) {
        return false;
    }
    if (static_cast<std::size_t>(length) == buffer.size()) {
        errno = ENAMETOOLONG;
        return false;
    }
    text.assign(buffer.data(), static_cast<std::size_t>(length));
    return true;
}

std::vector<std::string> NoFollowFolder::entries(bool& complete) const {
    std::vector<std::string> names;
    // A descriptor of its own, so the listing's position is not shared with this one.
    const int listed = openat(descriptor, ".", kFolderFlags);
    DIR* folder = listed < 0 ? nullptr : fdopendir(listed);
    if (folder == nullptr) {
        if (listed >= 0) {
            close(listed);
        }
        complete = false;
        return names;
    }
    errno = 0;
    for (const dirent* entry = readdir(folder); entry != nullptr; entry = readdir(folder)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    complete = errno == 0;
    closedir(folder);
    return names;
}
