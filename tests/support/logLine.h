#pragma once

#include <ctime>
#include <string>

// A time in this process's zone, formatted by strftime.
inline std::string localText(std::time_t time, const char* format) {
    std::tm local{};
    localtime_r(&time, &local);
    char text[32];
    return std::string(text, std::strftime(text, sizeof(text), format, &local));
}

// A time as the host stamps its log lines.
inline std::string stampOf(std::time_t time) {
    return localText(time, "%Y/%m/%d %H:%M:%S");
}

// The name of today's log file with this suffix ("", "_1", "_2", ...).
inline std::string todaysLogName(const std::string& suffix) {
    return "messagehost_" + localText(std::time(nullptr), "%Y_%m_%d") + suffix + ".log";
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
