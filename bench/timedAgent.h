#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "support/testAgent.h"

// A stand-in agent that, on a thread of its own, takes one connection and receives an expected
// number of frames on it, noting when each arrived whole. It stops at the first frame that is
// missing or differs from the expected payload.
class TimedAgent {
  public:
    using Clock = std::chrono::steady_clock;

    // Listens at once, so that a program started afterwards finds the socket.
    TimedAgent(const std::string& socketPath, std::string expectedPayload, std::size_t frames);
    ~TimedAgent();

    TimedAgent(const TimedAgent&) = delete;
    TimedAgent& operator=(const TimedAgent&) = delete;

    // Waits until every frame arrived or the agent gave up (after the stand-in agent's
    // deadlines); the arrival time of each frame that arrived intact, in order. Call once.
    std::vector<Clock::time_point> arrivals();

  private:
    void receive(const std::string& expectedPayload, std::size_t frames);

    TestAgent agent;
    std::vector<Clock::time_point> arrived;  // the receiver's own until it is joined
    std::thread receiver;
};
