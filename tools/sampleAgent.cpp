// A stand-in for the desktop agent, for trying the host by hand: listens on this user's agent
// socket and prints every frame it receives. Never installed.
//
// Usage: quorvelSampleAgent [--frames N]   (exit after N frames; default: until interrupted)

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "platform/utils.h"

namespace {

volatile sig_atomic_t interrupted = 0;

void onSignal(int) {
    interrupted = 1;
}

bool somethingListensOn(const std::string& path) {
    const int probe = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = localSocketAddress(path);
    const bool listening =
        connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    close(probe);
    return listening;
}

int listenOn(const std::string& path) {
    unlink(path.c_str());  // a stale socket file left by an earlier run
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = localSocketAddress(path);
    if (listener < 0 ||
        bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener, 4) != 0) {
        std::cerr << "Cannot listen on " << path << ": " << std::strerror(errno) << std::endl;
        std::exit(1);
    }
    return listener;
}

bool readExactly(int connection, void* buffer, std::size_t size) {
    auto* bytes = static_cast<char*>(buffer);
    while (size > 0) {
        const ssize_t got = read(connection, bytes, size);
        if (got <= 0) {
            return false;
        }
        bytes += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

// Prints the frames of one connection; returns how many arrived.
long printFrames(int connection, long received, long wanted) {
    uint32_t length = 0;
    while ((wanted == 0 || received < wanted) && readExactly(connection, &length, sizeof(length))) {
        std::string payload(length, '\0');
        if (!readExactly(connection, payload.data(), length)) {
            std::cout << "Connection closed inside a frame" << std::endl;
            break;
        }
        ++received;
        std::cout << "Frame " << received << " (" << length << " bytes): " << payload << std::endl;
    }
    return received;
}

}  // namespace

int main(int argc, char** argv) {
    const long wanted = argc == 3 && std::strcmp(argv[1], "--frames") == 0 ? std::atol(argv[2]) : 0;
    const std::string path = "/tmp/quorvel" + sha1Hash(getHomeDir());
    if (somethingListensOn(path)) {
        std::cout << "Something already listens on " << path << "; leaving it alone." << std::endl;
        return 2;
    }
    struct sigaction action {};
    action.sa_handler = onSignal;  // no SA_RESTART: a blocked accept or read returns
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    const int listener = listenOn(path);
    std::cout << "Sample agent listening on " << path << std::endl;
    long received = 0;
    while (!interrupted && (wanted == 0 || received < wanted)) {
        const int connection = accept(listener, nullptr, nullptr);
        if (connection < 0) {
            if (errno == EINTR) {
                continue;
            }
            break;
        }
        std::cout << "Host connected" << std::endl;
        received = printFrames(connection, received, wanted);
        close(connection);
    }
    close(listener);
    unlink(path.c_str());
    std::cout << "Sample agent stopped after " << received << " frame(s)" << std::endl;
    return 0;
}
