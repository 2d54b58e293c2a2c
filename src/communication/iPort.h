#pragma once

#include <functional>
#include <memory>

struct Packet;

// An endpoint that delivers received packets and accepts packets to send. Both operations
// return at once and report through their callback on a thread of the port's own. A port
// serves one direction only: the other operation does nothing and never calls back.
class IPort {
  public:
    virtual ~IPort() = default;

    // Calls back once with a packet, an empty packet (a frame without payload) or null
    // (the port has no more packets).
    virtual void AsyncReceive(std::function<void(std::shared_ptr<Packet>)> callback) = 0;

    // Calls back with true only when the whole frame was written.
    virtual void AsyncSend(std::shared_ptr<Packet> packet, std::function<void(bool)> callback) = 0;
};
