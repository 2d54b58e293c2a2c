#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include "communication/iPort.h"
#include "logger/active.h"
#include "logger/tracer.h"

class IWriter;
struct Packet;

// The port over the process's standard input and output. Frames are read from standard input
// on the port's own worker. Once cancelled (by Cancel, or by the end of standard input) the port
// releases the thread in WaitForCancel and answers every later request with null; a read already
// blocked on standard input is not interrupted. Destruction runs the reads already queued, so it
// waits for input while one of them is blocked.
class ExtPort : public IPort {
  public:
    explicit ExtPort(std::shared_ptr<IWriter> writer);

    // Queues one read of a frame; the callback gets its result on the port's worker and must
    // hand work on, since the next read waits for it.
    void AsyncReceive(std::function<void(std::shared_ptr<Packet>)> callback) override;

    // Does nothing and never calls back: nothing in the host writes to the extension.
    void AsyncSend(std::shared_ptr<Packet> packet, std::function<void(bool)> callback) override;

    // Blocks until one frame is read. Gives a packet, an empty packet (a frame without payload,
    // or one whose buffer could not be allocated), or null at the end of input or once cancelled.
    std::shared_ptr<Packet> Receive();

    // Writes one frame to descriptor 1 on the caller's thread; true when all of it was written.
    bool Send(std::shared_ptr<Packet> packet);

    // Callable from any thread; calling it again changes nothing.
    void Cancel();

    // Blocks until the port is cancelled. Only one waiting thread is expected.
    void WaitForCancel();

  private:
    std::atomic<bool> cancelled{false};  // written under cancelLock, read without it
    std::mutex cancelLock;
    std::condition_variable cancelledSignal;
    Tracer tracer;
    Active active;
};
