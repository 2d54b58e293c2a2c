#include "measuredProcess.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <fstream>
#include <string>

namespace {

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// The high-water mark of the process's resident memory in KiB, or 0 once it has exited or
// without /proc. Not ru_maxrss: on Linux a spawned child's also counts its parent's memory.
std::size_t residentHighWaterKiB(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::stoul(line.substr(6));
        }
    }
    return 0;
}

}  // namespace

std::size_t MeasuredProcess::unreadInput() const {
    int unread = 0;
    return input >= 0 && ioctl(input, FIONREAD, &unread) == 0 ? static_cast<std::size_t>(unread)
                                                              : 0;
}

double MeasuredProcess::cpuSeconds() const {
    return secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
}

void MeasuredProcess::whileRunning() {
    if (pid > 0) {
        peakResident = std::max(peakResident, residentHighWaterKiB(pid));
    }
}
