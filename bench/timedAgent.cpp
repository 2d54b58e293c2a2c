#include "timedAgent.h"

#include <optional>
#include <utility>

TimedAgent::TimedAgent(const std::string& socketPath, std::string expectedPayload,
                       std::size_t frames)
    : agent(socketPath) {
    arrived.reserve(frames);
    receiver = std::thread(
        [this, expected = std::move(expectedPayload), frames] { receive(expected, frames); });
}

TimedAgent::~TimedAgent() {
    if (receiver.joinable()) {
        receiver.join();
    }
}

std::vector<TimedAgent::Clock::time_point> TimedAgent::arrivals() {
    receiver.join();
    return std::move(arrived);
}

void TimedAgent::receive(const std::string& expectedPayload, std::size_t frames) {
    if (!agent.acceptConnection()) {
        return;
    }
    while (arrived.size() < frames) {
        const std::optional<std::string> payload = agent.readFrame();
        const Clock::time_point now = Clock::now();
        if (!payload || *payload != expectedPayload) {
            return;
        }
        arrived.push_back(now);
    }
}
