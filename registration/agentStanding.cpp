#include "agentStanding.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/utils.h"

namespace {

// As long as the host waits to connect: a listener with a full backlog counts as nothing.
constexpr timeval kConnectTimeout = {5, 0};

}  // namespace

AgentStanding AgentStanding::probe(const std::string& socketPath) {
    AgentStanding standing;
    standing.socketPath = socketPath;
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = localSocketAddress(socketPath);
    uid_t peer = 0;
    struct stat socketFile {};
    if (descriptor < 0 ||
        setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &kConnectTimeout,
                   sizeof(kConnectTimeout)) != 0 ||
        connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        standing.detail = std::strerror(errno);
        if (errno == EACCES && stat(socketPath.c_str(), &socketFile) == 0) {
            standing.listener = Listener::SomeoneElse;
            standing.listenerId = socketFile.st_uid;
        }
    } else if (!getPeerUserId(descriptor, peer)) {
        // The host refuses a listener it cannot tell, as one of someone else.
        standing.listener = Listener::SomeoneElse;
        standing.detail = std::strerror(errno);
    } else {
        standing.listener = isTrustedListener(peer) ? Listener::ThisUser : Listener::SomeoneElse;
        standing.listenerId = peer;
    }
    if (descriptor >= 0) {
        close(descriptor);
    }
    return standing;
}
