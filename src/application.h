#pragma once

#include <memory>

#include "logger/active.h"

class AgentPort;
class DailyFileWriter;
class ExtPort;
class Tracer;

// The host's one top-level object: builds the long-lived components, runs the host on the
// main thread until the extension side ends or an update is pending, and tears down.
class Application {
  public:
    static constexpr const char* Version = "1.2.0";

    // Never throws except when its own worker cannot start; a failed step leaves the
    // members from that step on empty.
    Application();

    // Writes out every queued log line, since a read still blocked on standard input can keep
    // the writer alive past the end of the process.
    ~Application();

    // Returns when the host has stopped; never throws. Does nothing when construction failed.
    void Start();

  private:
    void OnUpdateAvailable();

    std::shared_ptr<DailyFileWriter> writer;
    std::shared_ptr<Tracer> tracer;
    std::shared_ptr<ExtPort> extPort;
    std::shared_ptr<AgentPort> agentPort;
    Active worker;  // never given a job; stopped before the components are released
};
