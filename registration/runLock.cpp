#include "runLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
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
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return true;  // no lock to be had: the runs still converge, only not in turn
        }
        if (std::chrono::steady_clock::now() > deadline) {
            error = "another process has held the tool's lock (on /) for 30 seconds";
            return false;
        }
        std::this_thread::sleep_for(kRetryInterval);
    }
    return true;
}
