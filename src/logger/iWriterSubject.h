#pragma once

#include <memory>
#include <string>

class IWriter;

// The attach/detach side of a tracer, used while the host is assembled or torn down.
class IWriterSubject {
  public:
    virtual ~IWriterSubject() = default;

    virtual void Attach(std::shared_ptr<IWriter> writer) = 0;
    virtual void Detach(std::shared_ptr<IWriter> writer) = 0;
    virtual void WriteEntry(const std::string& message) = 0;
};
