#include "core/forwarder.h"

#include <mutex>

#include "communication/iPort.h"
#include "communication/packet.h"
#include "logger/active.h"
#include "logger/tracer.h"

// What the chain's jobs and callbacks need of the forwarder. They hold it weakly, so that a late
// callback keeps neither the tracer nor its writer alive, and they act only under actionLock
// before retire, so that once the forwarder is destroyed nothing is forwarded or logged. The
// lock is recursive because a destination may call the send callback from within AsyncSend.
class Forwarder::State : public std::enable_shared_from_this<State> {
  public:
    State(std::shared_ptr<IWriter> writer, const std::string& name)
        : tracer(name, std::move(writer)) {}

    void forwardData(std::shared_ptr<IPort> source, std::shared_ptr<IPort> destination) {
        std::weak_ptr<State> self = weak_from_this();
        active.send([self, source, destination] {
            source->AsyncReceive([self, source, destination](std::shared_ptr<Packet> packet) {
                ifNotRetired(self, [&](State& state) {
                    state.onReceived(source, destination, std::move(packet));
                });
            });
        });
    }

    // Runs the receive requests already queued; waits for a callback that is acting.
    void retire() {
        active.stop();
        std::lock_guard<std::recursive_mutex> lock(actionLock);
        retired = true;
    }

  private:
    template <typename Action>
    static void ifNotRetired(const std::weak_ptr<State>& self, Action action) {
        const std::shared_ptr<State> state = self.lock();
        if (!state) {
            return;
        }
        std::lock_guard<std::recursive_mutex> lock(state->actionLock);
        if (!state->retired) {
            action(*state);
        }
    }

    // The next receive is requested without waiting for the send; a null packet ends the chain.
    void onReceived(std::shared_ptr<IPort> source, std::shared_ptr<IPort> destination,
                    std::shared_ptr<Packet> packet) {
        if (!packet) {
            return;
        }
        if (hasContent(packet)) {
            destination->AsyncSend(packet, [self = weak_from_this()](bool sent) {
                ifNotRetired(self, [sent](State& state) { state.onSent(sent); });
            });
        }
        forwardData(std::move(source), std::move(destination));
    }

    // A failed send is logged by the destination port itself.
    void onSent(bool sent) {
        if (sent) {
            tracer.WriteEntry("Packet is forwarded successfully.");
        }
    }

    Tracer tracer;
    Active active;
    std::recursive_mutex actionLock;
    bool retired = false;  // guarded by actionLock
};

Forwarder::Forwarder(std::shared_ptr<IPort> source, std::shared_ptr<IPort> destination,
                     std::shared_ptr<IWriter> writer, const std::string& name)
    : state(std::make_shared<State>(std::move(writer), name)) {
    ForwardData(std::move(source), std::move(destination));
}

Forwarder::~Forwarder() {
    state->retire();
}

void Forwarder::ForwardData(std::shared_ptr<IPort> source, std::shared_ptr<IPort> destination) {
    state->forwardData(std::move(source), std::move(destination));
}
