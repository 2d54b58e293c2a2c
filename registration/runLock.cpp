#include "runLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace {

constexpr auto kPatience = std::chrono::seconds(30);
constexpr auto kRetryInterval = std::chrono::milliseconds(10);

}  // namespace

RunLock::~RunLock() {
    if (descriptor >= 0) {
        close(descriptor);
    }
}

bool RunLock::acquire(std::string& error) {
    descriptor = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        const bool held = errno == EWOULDBLOCK || errno == EINTR;
        if (!held || std::chrono::steady_clock::now() > deadline) {
            error = held ? "another process has held the tool's lock (on /) for 30 seconds"
                         : "cannot lock /: " + std::string(std::strerror(errno));
            return false;
        }
        std::this_thread::sleep_for(kRetryInterval);
    }
    if (descriptor < 0) {
        error = "cannot open / to lock it: " + std::string(std::strerror(errno));
        return false;
    }
    return true;
}
