#pragma once

#include <memory>
#include <string>
#include <vector>

#include "logger/iTracer.h"
#include "logger/iWriterSubject.h"

class IWriter;

// Turns a message into "YYYY/MM/DD HH:MM:SS | SOURCE | message" and hands the line to every
// attached writer. WriteEntry takes no lock and may be called from any thread; Attach and
// Detach may not run while another thread logs.
class Tracer : public IWriterSubject, public ITracer {
  public:
    explicit Tracer(const std::string& source);
    Tracer(const std::string& source, std::shared_ptr<IWriter> writer);

    void Attach(std::shared_ptr<IWriter> writer) override;
    void Detach(std::shared_ptr<IWriter> writer) override;
    void WriteEntry(const std::string& message) override;

    // Local time as YYYY/MM/DD HH:MM:SS.
    static std::string GetCurrentDateTime();

  private:
    void InitSource(const std::string& source);
    std::string BuildLine(const std::string& message) const;
    void Notify(const std::string& line);

    std::string source;
    std::vector<std::shared_ptr<IWriter>> writers;
};
