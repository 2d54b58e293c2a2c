#pragma once

#include <string>

// The entry point of logging for components that only log.
class ITracer {
  public:
    virtual ~ITracer() = default;

    // Logs one message; never throws.
    virtual void WriteEntry(const std::string& message) = 0;
};
