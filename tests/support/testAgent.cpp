#include "support/testAgent.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "platform/utils.h"

namespace {

constexpr int kDeadlineSeconds = 20;
constexpr int kOtherUsersBacklog = 16;

}  // namespace

TestAgent::TestAgent(const std::string& path, int backlog) : path_(path) {
    const sockaddr_un address = localSocketAddress(path);
    listener_ = socket(AF_UNIX, SOCK_STREAM, 0);
    if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener_, backlog) != 0) {
        throw std::runtime_error("cannot listen at " + path + ": " + std::strerror(errno));
    }
}

TestAgent::TestAgent(const std::string& path, uid_t user) : path_(path) {
    const sockaddr_un address = localSocketAddress(path);
    listener_ = socket(AF_UNIX, SOCK_STREAM, 0);
    const pid_t child = fork();
    if (child == 0) {
        // A child of a threaded process: async-signal-safe calls only, its error as the status.
        const bool listening =
            setuid(user) == 0 &&
            bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
            listen(listener_, kOtherUsersBacklog) == 0;
        _exit(listening ? 0 : errno);
    }
    int status = -1;
    const bool waited = child != -1 && waitpid(child, &status, 0) == child;
    if (!waited || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        const std::string reason = !waited             ? "no child process"
                                   : WIFEXITED(status) ? std::strerror(WEXITSTATUS(status))
                                                       : "the child was killed";
        close(listener_);
        throw std::runtime_error("cannot listen at " + path + " as user " + std::to_string(user) +
                                 ": " + reason);
    }
}

TestAgent::~TestAgent() {
    closeConnection();
    if (occupant_ != -1) {
        close(occupant_);
    }
    close(listener_);
    unlink(path_.c_str());
}

bool TestAgent::acceptConnection() {
    pollfd pending{listener_, POLLIN, 0};
    if (poll(&pending, 1, kDeadlineSeconds * 1000) != 1) {
        return false;
    }
    closeConnection();
    connection_ = accept(listener_, nullptr, nullptr);
    const timeval deadline{kDeadlineSeconds, 0};
    setsockopt(connection_, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof(deadline));
    return connection_ != -1;
}

std::string TestAgent::read(std::size_t count) {
    std::string bytes(count, '\0');
    const ssize_t received = count == 0 ? 0 : recv(connection_, bytes.data(), count, MSG_WAITALL);
    bytes.resize(received > 0 ? static_cast<std::size_t>(received) : 0);
    return bytes;
}

std::optional<std::string> TestAgent::readFrame() {
    uint32_t length = 0;
    const std::string header = read(sizeof(length));
    if (header.size() != sizeof(length)) {
        return std::nullopt;
    }
    std::memcpy(&length, header.data(), sizeof(length));
    std::string payload = read(length);
    return payload.size() == length ? std::optional<std::string>(payload) : std::nullopt;
}

bool TestAgent::waitForEnd() {
    char byte = 0;
    return recv(connection_, &byte, 1, 0) == 0;
}

void TestAgent::closeConnection() {
    if (connection_ != -1) {
        close(connection_);
        connection_ = -1;
    }
}

void TestAgent::occupyBacklog() {
    const sockaddr_un address = localSocketAddress(path_);
    occupant_ = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(occupant_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        throw std::runtime_error("cannot occupy the backlog of " + path_);
    }
}
