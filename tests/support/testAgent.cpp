#include "support/testAgent.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kDeadline(20);

// Waits until the descriptor is readable (data, end of stream or a pending connection).
bool readableBy(int descriptor, Clock::time_point deadline) {
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd entry{descriptor, POLLIN, 0};
        const int ready = poll(&entry, 1, left.count() > 0 ? static_cast<int>(left.count()) : 0);
        if (ready != 0 || left.count() <= 0) {
            return ready > 0;
        }
    }
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        throw std::runtime_error("socket path too long: " + path);
    }
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    return address;
}

}  // namespace

TestAgent::TestAgent(const std::string& path, int backlog) : path_(path) {
    const sockaddr_un address = addressOf(path);
    listener_ = socket(AF_UNIX, SOCK_STREAM, 0);
    if (listener_ == -1 ||
        bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener_, backlog) != 0) {
        const std::string error = std::strerror(errno);
        if (listener_ != -1) {
            close(listener_);
        }
        throw std::runtime_error("cannot listen at " + path + ": " + error);
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
    if (!readableBy(listener_, Clock::now() + kDeadline)) {
        return false;
    }
    closeConnection();
    connection_ = accept(listener_, nullptr, nullptr);
    return connection_ != -1;
}

bool TestAgent::hasPendingConnection() const {
    return readableBy(listener_, Clock::now());
}

std::string TestAgent::read(std::size_t count) {
    const auto deadline = Clock::now() + kDeadline;
    std::string bytes(count, '\0');
    std::size_t received = 0;
    while (received < count && readableBy(connection_, deadline)) {
        const ssize_t got = recv(connection_, &bytes[received], count - received, 0);
        if (got <= 0) {
            break;
        }
        received += static_cast<std::size_t>(got);
    }
    bytes.resize(received);
    return bytes;
}

std::optional<std::string> TestAgent::readFrame() {
    const std::string header = read(sizeof(uint32_t));
    if (header.size() != sizeof(uint32_t)) {
        return std::nullopt;
    }
    uint32_t length = 0;
    std::memcpy(&length, header.data(), sizeof(length));
    std::string payload = read(length);
    if (payload.size() != length) {
        return std::nullopt;
    }
    return payload;
}

bool TestAgent::waitForEnd() {
    char byte = 0;
    return readableBy(connection_, Clock::now() + kDeadline) && recv(connection_, &byte, 1, 0) == 0;
}

void TestAgent::closeConnection() {
    if (connection_ != -1) {
        close(connection_);
        connection_ = -1;
    }
}

void TestAgent::occupyBacklog() {
    const sockaddr_un address = addressOf(path_);
    occupant_ = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(occupant_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        throw std::runtime_error("cannot occupy the backlog of " + path_);
    }
}
