#include "communication/agentPortMac.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "communication/packet.h"
#include "platform/utils.h"

namespace {

const char* const kSource = "AGT-PORT";
constexpr int32_t kNoSocket = -1;
// The longest a connect or a write waits for the agent: no longer than the update watcher's
// wait, which stopping the host waits out anyway.
constexpr time_t kLongestWaitSeconds = 5;

// A write to a socket that the agent has closed must fail like any other write instead of
// raising SIGPIPE and ending the host, without changing the signal's disposition.
#if defined(__APPLE__)
int protectFromBrokenPipe(int descriptor) {
    const int on = 1;
    return setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof(on));
}

ssize_t writeToSocket(int descriptor, const void* bytes, std::size_t count) {
    return write(descriptor, bytes, count);
}
#else
int protectFromBrokenPipe(int) {
    return 0;
}

ssize_t writeToSocket(int descriptor, const void* bytes, std::size_t count) {
    return send(descriptor, bytes, count, MSG_NOSIGNAL);
}
#endif

// An agent that never accepts (Linux holds connect while its backlog is full) or never reads
// then costs the frames it does not take, never the host's exit.
int limitWaits(int descriptor) {
    const timeval limit{kLongestWaitSeconds, 0};
    return setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
}

// A stream socket protected from the broken-pipe signal and from endless waits, or -1 with
// errno set.
int32_t createSocket() {
    const int32_t descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    if (descriptor != kNoSocket &&
        (protectFromBrokenPipe(descriptor) != 0 || limitWaits(descriptor) != 0)) {
        const int error = errno;
        close(descriptor);
        errno = error;
        return kNoSocket;
    }
    return descriptor;
}

// One call; a short write counts as a failure.
bool writeWhole(int32_t descriptor, const void* bytes, std::size_t count) {
    const ssize_t written = writeToSocket(descriptor, bytes, count);
    return written >= 0 && static_cast<std::size_t>(written) == count;
}

// The 4-byte header, then the payload: two writes, no retry.
bool writeFrame(int32_t descriptor, const Packet& packet) {
    // The low 32 bits of the size, in the host's native byte order.
    const uint32_t length = static_cast<uint32_t>(packet.size);
    return writeWhole(descriptor, &length, sizeof(length)) &&
           writeWhole(descriptor, packet.data, packet.size);
}

}  // namespace

AgentPort::AgentPort(std::shared_ptr<IWriter> writer) : tracer(kSource, std::move(writer)) {
    socketPath = getAgentSocketPath();
    tracer.WriteEntry("Socket name: " + socketPath);
}

AgentPort::~AgentPort() {
    // Deliberately before the worker stops: a job still queued then connects anew unless the
    // port was cancelled.
    Release();
}

void AgentPort::AsyncReceive(std::function<void(std::shared_ptr<Packet>)>) {}

void AgentPort::AsyncSend(std::shared_ptr<Packet> packet, std::function<void(bool)> callback) {
    if (connecting) {
        // Deliberately turned away rather than queued behind the connect.
        tracer.WriteEntry("Can't send, openning socket is in progress.");
        callback(false);
        return;
    }
    worker.send([callback = std::move(callback), this, packet = std::move(packet)] {
        const bool sent = Send(packet);
        callback(sent);
    });
}

void AgentPort::Cancel() {
    tracer.WriteEntry("Canceling AgentPort");
    cancelled = true;
    Release();
}

void AgentPort::Release() {
    // A send that waits on the agent holds socketLock; shutting the connection down wakes it.
    // A number closed and taken over meanwhile is a file, where shutdown fails, or this port's
    // next connection, which is being released as well.
    const int32_t descriptor = socketDescriptor;
    if (descriptor != kNoSocket) {
        shutdown(descriptor, SHUT_RDWR);
    }
    std::lock_guard<std::mutex> lock(socketLock);
    CloseSocket();
}

void AgentPort::CloseSocket() {
    // Taken in one step so that Cancel and a failing send never close the same descriptor twice.
    const int32_t descriptor = socketDescriptor.exchange(kNoSocket);
    if (descriptor != kNoSocket) {
        close(descriptor);
    }
}

bool AgentPort::Send(std::shared_ptr<Packet> packet) {
    if (cancelled) {
        return false;
    }
    if (!hasContent(packet)) {
        return false;
    }
    if (socketDescriptor == kNoSocket) {
        socketDescriptor = ConnectSocket();
    }
    // Other threads close the socket only under this lock, so it stays open while it is written.
    std::lock_guard<std::mutex> lock(socketLock);
    // A Cancel during the connect found no connection to shut down; none may be written then.
    if (cancelled) {
        CloseSocket();
        return false;
    }
    const int32_t descriptor = socketDescriptor;
    if (descriptor == kNoSocket || !writeFrame(descriptor, *packet)) {
        tracer.WriteEntry("Can't send");
        CloseSocket();
        return false;
    }
    LogPacket(TransferType::Outgoing, tracer, packet);
    return true;
}

int32_t AgentPort::ConnectSocket() {
    const int32_t descriptor = createSocket();
    if (descriptor == kNoSocket) {
        tracer.WriteEntry(std::string("Error creating socket ") + std::strerror(errno));
        return kNoSocket;
    }
    const sockaddr_un address = localSocketAddress(socketPath);
    connecting = true;
    const int result =
        connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    const int error = errno;
    connecting = false;
    if (result != 0) {
        tracer.WriteEntry("Error connecting to socket(" + socketPath +
                          "): " + std::strerror(error));
        close(descriptor);
        return kNoSocket;
    }
    if (!TrustsListener(descriptor)) {
        close(descriptor);
        return kNoSocket;
    }
    return descriptor;
}

// The socket's name is public and /tmp is writable by everyone: whoever listens there first would
// read every message, so the listener must be this user (or root) before a byte is written.
bool AgentPort::TrustsListener(int32_t descriptor) {
    uid_t listener = 0;
    if (!getPeerUserId(descriptor, listener)) {
        const int error = errno;
        tracer.WriteEntry("Can't tell who listens on socket(" + socketPath +
                          "): " + std::strerror(error));
        return false;
    }
    if (!isTrustedListener(listener)) {
        tracer.WriteEntry("Refusing socket(" + socketPath + "): its listener runs as user " +
                          std::to_string(listener) + ", not as the host's user " +
                          std::to_string(geteuid()) + " or root");
        return false;
    }
    return true;
}
