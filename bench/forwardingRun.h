#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

// A program that forwards the frames of its standard input to the agent socket: the host, or
// one of the references it is compared with.
struct ForwardingProgram {
    std::string label;
    std::string program;  // a path, or a name looked up in PATH
    std::vector<std::string> arguments;
};

// What one forwarder achieved on a stream of equal frames.
struct ForwardingFigures {
    std::size_t frames = 0;     // written to the forwarder
    std::size_t delivered = 0;  // reached the agent whole and in order
    double framesPerSecond = 0;
    double megabytesPerSecond = 0;  // 10^6 bytes of payload
    double latencyMedianMs = 0;     // from the start of a frame's write to its arrival
    double latency99Ms = 0;
    double gapMedianMs = 0;  // between two consecutive arrivals
    double gapLongestMs = 0;
    double cpuSecondsPerFrame = 0;  // the forwarder's whole run, start and stop included
    double peakResidentMiB = 0;
};

// Starts the forwarder with an agent listening at socketPath, writes `frames` frames of `size`
// payload bytes to its standard input, each as soon as the forwarder has taken the previous one
// off the pipe, waits until they arrived, then closes the input and waits for the exit.
// Throws std::runtime_error when the forwarder cannot be run or does not exit with status 0.
ForwardingFigures runForwarding(const ForwardingProgram& forwarder, const std::string& socketPath,
                                const std::filesystem::path& workDir, std::size_t size,
                                std::size_t frames);

// The payload of every frame of a run: printable bytes, as the extension's messages are.
std::string payloadOfSize(std::size_t size);

// The median and the 99th percentile (nearest rank) of some values; 0 when there are none.
double percentile(std::vector<double> values, double fraction);
