#include "boundedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

std::string kindOf(mode_t mode) {
    return S_ISDIR(mode)    ? "a folder"
           : S_ISFIFO(mode) ? "a FIFO"
           : S_ISCHR(mode)  ? "a character device"
           : S_ISBLK(mode)  ? "a block device"
           : S_ISSOCK(mode) ? "a socket"
                            : "of an unknown kind";
}

std::string tooLarge(unsigned long long size, std::size_t limit) {
    return "it is too large: " + std::to_string(size) + " bytes, more than the " +
           std::to_string(limit) + " a manifest may have";
}

// The problem with a file of that status, "" when it may be read.
std::string problemOf(const struct stat& status, std::size_t limit) {
    if (!S_ISREG(status.st_mode)) {
        return "it is " + kindOf(status.st_mode) + ", not a regular file";
    }
    const auto size = static_cast<unsigned long long>(status.st_size);
    return size > limit ? tooLarge(size, limit) : "";
}

std::string unreadable() {
    return "this user cannot read it: " + std::string(std::strerror(errno));
}

// The file's bytes to its end, or "" with the problem when there are more than limit (it grew).
std::string readUpTo(int file, std::size_t limit, std::string& problem) {
    std::string text;
    char buffer[4096];
    for (ssize_t count = 1; count != 0 && text.size() <= limit;) {
        count = ::read(file, buffer, sizeof(buffer));
        if (count < 0 && errno != EINTR) {
            problem = unreadable();
            return "";
        }
        text.append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    if (text.size() > limit) {
        problem = tooLarge(text.size(), limit);
        return "";
    }
    return text;
}

}  // namespace

std::string BoundedFile::read(int folder, const std::string& name, std::size_t limit,
                              std::string& problem) {
    struct stat status {};
    if (fstatat(folder, name.c_str(), &status, 0) != 0) {
        problem = unreadable();
        return "";
    }
    problem = problemOf(status, limit);
    if (!problem.empty()) {
        return "";
    }
    // O_NONBLOCK: should a FIFO have taken the file's place since, the open does not wait; its
    // status, taken again once open, then says what it is.
    const int file = openat(folder, name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    problem = file >= 0 && fstat(file, &status) == 0 ? problemOf(status, limit) : unreadable();
    const std::string text = problem.empty() ? readUpTo(file, limit, problem) : "";
    if (file >= 0) {
        close(file);
    }
    return text;
}
