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
    double scale = 1;  // Of the numbers of rounds.
    double idle_seconds = 30;
    std::string json_file;
    std::string library_file;

    int Rounds(int full) const { return std::max(10, static_cast<int>(full * scale)); }
};

// Long enough for a thread that was told to wait to be waiting, and for one that was told to close
// the notification node to have closed it: a record goes to whoever reads first.
inline void Settle() {
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
}

// What the DSP has to tell: detections and captured audio.
Row Detection(const Options& options);
std::vector<Row> ReadBuffer(const Options& options);
Row ReadBufferBesideALoad(const Options& options);

// What is asked of the DSP.
std::vector<Row> LoadModel(const Options& options);
std::vector<Row> StartStop(const Options& options);
Row OnlineReport(const Options& options);
// Two bare loops against each other: what a ratio is worth on this machine at this time.
Row Noise(const Options& options);

std::vector<Row> Mulaw(const Options& options);
// The way that the library writes the lines of a detection, and the usual one.
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
