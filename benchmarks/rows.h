#pragma once

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/measure.h"

// What is measured: each function makes its own board and HAL and returns finished rows.
namespace bench {

struct Options {
    double scale = 1;  // Multiplies the numbers of rounds.
    double idle_seconds = 30;
    std::string json_file;
    std::string library_file;

    int Rounds(int full) const { return std::max(10, static_cast<int>(full * scale)); }
};

// Gives the threads time. One that was told to wait is waiting afterwards; one that was told to
// close the notification node has closed it. This matters because a record goes to the first
// reader.
inline void Settle() {
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
}

// From the DSP: detections and captured audio.
Row Detection(const Options& options);
std::vector<Row> ReadBuffer(const Options& options);
Row ReadBufferBesideALoad(const Options& options);

// To the DSP: models and commands.
std::vector<Row> LoadModel(const Options& options);
std::vector<Row> StartStop(const Options& options);
Row OnlineReport(const Options& options);
// Compares two bare loops. The result shows how exact a ratio is on this machine at this time.
Row Noise(const Options& options);

std::vector<Row> Mulaw(const Options& options);
// Compares the library's way of writing the lines of a detection with the usual one.
Row LogLines(const Options& options);

// What is counted, not timed.
std::vector<Row> AllocationRows();
std::vector<Row> Idle(const Options& options);
Row MemoryPerModel();
Row LibrarySize(const std::string& file);
Row StartUpCalls();

// The run of this program that StartUpCalls() traces: it starts the HAL up and ends.
constexpr char kStartUpOption[] = "--start-up";
void StartUp();

}  // namespace bench
