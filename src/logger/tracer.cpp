#include "logger/tracer.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "logger/iWriter.h"
#include "platform/utils.h"

namespace {

// Keeps the tag column narrow; "HOST-APP" is exactly this long.
constexpr std::size_t kMaxSourceLength = 8;
constexpr std::string_view kSeparator = " | ";

}  // namespace

Tracer::Tracer(const std::string& source) {
    try {
        InitSource(source);
    } catch (...) {
    }
}

Tracer::Tracer(const std::string& source, std::shared_ptr<IWriter> writer) : Tracer(source) {
    Attach(std::move(writer));
}

void Tracer::InitSource(const std::string& source) {
    this->source = source.substr(0, kMaxSourceLength);
}

void Tracer::Attach(std::shared_ptr<IWriter> writer) {
    try {
        writers.push_back(std::move(writer));
    } catch (...) {
    }
}

void Tracer::Detach(std::shared_ptr<IWriter> writer) {
    writers.erase(std::remove(writers.begin(), writers.end(), writer), writers.end());
}

void Tracer::WriteEntry(const std::string& message) {
    try {
        Notify(BuildLine(message));
    } catch (...) {
    }
}

// Sized once, so that the message, which may be a whole payload, is copied once.
std::string Tracer::BuildLine(const std::string& message) const {
    const std::string stamp = GetCurrentDateTime();
    std::string line;
    line.reserve(stamp.size() + 2 * kSeparator.size() + source.size() + message.size());
    line.append(stamp).append(kSeparator).append(source).append(kSeparator).append(message);
    return line;
}

void Tracer::Notify(const std::string& line) {
    for (const auto& writer : writers) {
        writer->Update(line);
    }
}

std::string Tracer::GetCurrentDateTime() {
    const std::tm local = getLocalTime();
    char text[80];  // room for any int the fields may hold
    std::snprintf(text, sizeof(text), "%04d/%02d/%02d %02d:%02d:%02d", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return text;
}
