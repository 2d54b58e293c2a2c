#pragma once

#include <memory>
#include <string>

class IPort;
class IWriter;

// Moves every packet that the source receives to the destination, one receive request at a
// time, and logs each send that succeeded. The ports must call back on threads of their own.
// Destruction cancels neither port and leaves their callbacks with them; a callback that comes
// afterwards forwards and logs nothing.
class Forwarder {
  public:
    // Starts forwarding at once; the trace name is the source tag of the forwarder's entries.
    Forwarder(std::shared_ptr<IPort> source, std::shared_ptr<IPort> destination,
              std::shared_ptr<IWriter> writer, const std::string& name);
    ~Forwarder();

    Forwarder(const Forwarder&) = delete;
    Forwarder& operator=(const Forwarder&) = delete;

    // Requests the next packet from the source on the forwarder's worker; returns at once.
    void ForwardData(std::shared_ptr<IPort> source, std::shared_ptr<IPort> destination);

  private:
    class State;
    std::shared_ptr<State> state;
};
