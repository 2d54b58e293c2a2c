// The limit without the host's design: reads each frame from standard input with the same C
// stream as the host and writes it to the agent socket at once, as the host does (length, then
// payload), on one thread: no workers, no polling, no log. Exits at the end of its input.
//
// Usage: quorvelReferenceForwarder SOCKET_PATH

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <vector>

#include "platform/utils.h"

namespace {

int connectTo(const char* path) {
    const sockaddr_un address = localSocketAddress(path);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    if (descriptor < 0 ||
        connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        std::cerr << "Cannot connect to " << path << ": " << std::strerror(errno) << std::endl;
        return -1;
    }
    return descriptor;
}

bool writeAll(int descriptor, const void* bytes, std::size_t size) {
    const auto* next = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t written = write(descriptor, next, size);
        if (written <= 0) {
            return false;
        }
        next += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "Usage: quorvelReferenceForwarder SOCKET_PATH" << std::endl;
        return 2;
    }
    const int agent = connectTo(argv[1]);
    if (agent < 0) {
        return 1;
    }
    std::vector<char> payload;
    uint32_t length = 0;
    while (std::fread(&length, 1, sizeof(length), stdin) == sizeof(length)) {
        payload.resize(length);
        if (std::fread(payload.data(), 1, length, stdin) != length ||
            !writeAll(agent, &length, sizeof(length)) || !writeAll(agent, payload.data(), length)) {
            return 1;
        }
    }
    close(agent);
    return 0;
}
