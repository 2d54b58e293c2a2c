#pragma once

#include <string>

// A log sink. Update may be called from any thread and must not block the caller for long.
class IWriter {
  public:
    virtual ~IWriter() = default;

    // One finished log line, without its line end.
    virtual void Update(const std::string& line) = 0;
};
