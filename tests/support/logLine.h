#pragma once

#include <cctype>
#include <ctime>
#include <string>

// The source column and message of a log line, "YYYY/MM/DD HH:MM:SS | SOURCE | message", as
// "SOURCE | message" when its stamp is a local time (in this process's time zone) from earliest
// to latest, clock readings taken before the line was made and after it was seen. Any other
// line stays whole, an ill-stamped one with the reason, so that it shows in a comparison.
inline std::string checkedEntry(const std::string& line, std::time_t earliest, std::time_t latest) {
    const std::string shape = "dddd/dd/dd dd:dd:dd | ";
    if (line.size() < shape.size() + 3 || line.find(" | ", shape.size()) == std::string::npos) {
        return line;
    }
    for (std::size_t i = 0; i < shape.size(); ++i) {
        const bool digit = std::isdigit(static_cast<unsigned char>(line[i])) != 0;
        if (shape[i] == 'd' ? !digit : line[i] != shape[i]) {
            return line;
        }
    }
    const auto field = [&](std::size_t at, std::size_t length) {
        return std::stoi(line.substr(at, length));
    };
    std::tm stamp{};
    stamp.tm_year = field(0, 4) - 1900;
    stamp.tm_mon = field(5, 2) - 1;
    stamp.tm_mday = field(8, 2);
    stamp.tm_hour = field(11, 2);
    stamp.tm_min = field(14, 2);
    stamp.tm_sec = field(17, 2);
    stamp.tm_isdst = -1;
    const std::time_t time = std::mktime(&stamp);
    if (time < earliest || time > latest) {
        std::tm from{};
        localtime_r(&earliest, &from);
        char start[32];
        std::strftime(start, sizeof(start), "%Y/%m/%d %H:%M:%S", &from);
        return line + " (stamped outside " + start + " + " + std::to_string(latest - earliest) +
               " s)";
    }
    return line.substr(shape.size());
}
