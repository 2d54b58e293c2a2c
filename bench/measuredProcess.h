#pragma once

#include <cstddef>

#include "support/hostProcess.h"

// A forwarder under measurement: how much of its input it has not read yet, and what its whole
// run cost in processor time and memory.
class MeasuredProcess : public HostProcess {
  public:
    using HostProcess::HostProcess;

    // How many bytes written to the standard input the program has not read yet.
    std::size_t unreadInput() const;

    // User and system CPU time of the whole run; valid once waitForExit returned a status.
    double cpuSeconds() const;

    // The program's own peak resident memory in KiB, as last seen while it ran: when its input
    // was closed and while waitForExit waited. 0 where the system does not show it (no /proc).
    std::size_t peakResidentKiB() const { return peakResident; }

  protected:
    void whileRunning() override;

  private:
    std::size_t peakResident = 0;
};
