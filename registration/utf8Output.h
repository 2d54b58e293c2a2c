#pragma once

#include <ostream>
#include <streambuf>
#include <string>

#include <nlohmann/json.hpp>

// Passes what the tool prints on to another stream a line at a time, with U+FFFD in place of
// bytes that are not UTF-8: a path from $HOME or the command line may hold such bytes, and what
// the tool prints stays text that a terminal, a log or a JSON reader takes whole.
class Utf8Output : public std::streambuf {
  public:
    explicit Utf8Output(std::ostream& target) : target(target) {}
    ~Utf8Output() override;
    Utf8Output(const Utf8Output&) = delete;
    Utf8Output& operator=(const Utf8Output&) = delete;

    // The value with U+FFFD in place of each byte of its strings that does not belong to a valid
    // UTF-8 sequence.
    static nlohmann::json valid(const nlohmann::json& value);

  protected:
    int_type overflow(int_type character) override;
    int sync() override;

  private:
    std::ostream& target;
    std::string pending;  // the line begun, kept whole so that no character is split
};
