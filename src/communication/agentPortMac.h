#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "communication/iPort.h"
#include "logger/active.h"
#include "logger/tracer.h"

class IWriter;
struct Packet;

// The port to the locally running agent: writes every packet as one frame to the agent's
// Unix-domain socket, connecting on demand, and never reads anything back. Sends and their
// callbacks run on the port's own worker, one at a time, in the order they were asked for.
class AgentPort : public IPort {
  public:
    // Names the socket after the home folder; does not connect.
    explicit AgentPort(std::shared_ptr<IWriter> writer);
    // Closes the socket before the worker runs the jobs still queued.
    ~AgentPort() override;

    // The agent sends nothing: never calls back.
    void AsyncReceive(std::function<void(std::shared_ptr<Packet>)> callback) override;

    // While a connect is in progress the packet is turned away at once, with false on the
    // caller's thread (an empty callback then throws std::bad_function_call to the caller).
    void AsyncSend(std::shared_ptr<Packet> packet, std::function<void(bool)> callback) override;

    // Final: every send after it fails without touching the socket. Any thread; returns once a
    // send under way has (one that waits on the agent is woken).
    void Cancel();

    // Closes the connection, if any, once a send under way has returned (one that waits on the
    // agent is woken); the next packet connects again. Any thread.
    void Release();

  private:
    bool Send(std::shared_ptr<Packet> packet);  // worker thread only
    int32_t ConnectSocket();                    // worker thread only; -1 on failure
    bool TrustsListener(int32_t descriptor);    // worker thread only; logs a refusal
    void CloseSocket();                         // socketLock held

    Tracer tracer;
    std::string socketPath;  // set by the constructor, then only read
    // Shared with Cancel and Release on other threads, hence atomic; -1 means no connection.
    std::atomic<int32_t> socketDescriptor{-1};
    std::mutex socketLock;                // held while the socket is written to or closed
    std::atomic<bool> cancelled{false};   // set by Cancel, never cleared
    std::atomic<bool> connecting{false};  // true only while connect runs on the worker
    Active worker;
};
