#pragma once

#include <ctime>
#include <string>

// A time as the host stamps its log lines: local time, "YYYY/MM/DD HH:MM:SS".
inline std::string stampOf(std::time_t time) {
    std::tm local{};
    localtime_r(&time, &local);
    char text[32];
    return std::string(text, std::strftime(text, sizeof(text), "%Y/%m/%d %H:%M:%S", &local));
}

// The source column and message of a log line, "STAMP | SOURCE | message", as
// "SOURCE | message" when it is stamped with a second from earliest to latest, clock readings
// taken before the line was made and after it was seen. Any other line stays whole, an
// ill-stamped one with the window, so that it shows in a comparison.
inline std::string checkedEntry(const std::string& line, std::time_t earliest, std::time_t latest) {
    constexpr std::size_t kStampLength = 19;
    if (line.find(" | ") != kStampLength) {
        return line;
    }
    for (std::time_t second = earliest; second <= latest; ++second) {
        if (line.compare(0, kStampLength, stampOf(second)) == 0) {
            return line.substr(kStampLength + 3);
        }
    }
    return line + " (stamped outside " + stampOf(earliest) + " to " + stampOf(latest) + ")";
}
