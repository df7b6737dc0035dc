#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

// Measuring the library against a bare loop of the same system calls. Both run in the same process,
// in turns, so that whatever else the machine does hits both alike; what is judged is their ratio.
namespace bench {

int64_t NowNs();  // CLOCK_MONOTONIC.

// Durations of one thing done many times, in nanoseconds.
class Samples {
  public:
    void Add(int64_t ns) { values_.push_back(ns); }
    size_t count() const { return values_.size(); }
    // 0..1; 0 when there are none. 0.5 is the median.
    double Quantile(double q) const;
    double Median() const { return Quantile(0.5); }
    double P99() const { return Quantile(0.99); }

  private:
    std::vector<int64_t> values_;
};

// One line of the table.
struct Row {
    std::string what;
    std::string bare;     // What the ratio is to.
    std::string logging;  // "default", "off", or empty where it makes no difference.
    std::string unit;     // "us" for times.
    double value = 0;     // The library's: median, or the figure itself.
    double p99 = 0;
    double bare_value = 0;
    double bare_p99 = 0;
    std::optional<double> ratio;  // Of the medians, unless `what` says otherwise.
    std::optional<double> goal;   // The ratio or figure that it should not exceed.
    std::string note;

    bool IsMissed() const;
};

// Returns the duration of one round in nanoseconds, or does the round and is timed by the caller.
using Round = std::function<int64_t()>;

// Runs `library` and `bare` in turns, `rounds` times each, the order of the two changing every
// time, after a tenth of that as warm-up.
Row Compare(std::string what, std::string bare_name, int rounds, const Round& library,
            const Round& bare, std::optional<double> goal);

// Times `work`.
Round Timed(std::function<void()> work);

void PrintTable(const std::vector<Row>& rows, std::ostream& out);
void PrintJson(const std::vector<Row>& rows, std::ostream& out);

// Heap allocations that this thread has made so far (malloc and all that is built on it). Others do
// not count: the board serves its nodes from this very process.
uint64_t Allocations();

// Bytes of the heap that this thread has taken and not given back, in blocks as the C library
// rounds them.
int64_t HeldBytes();

}  // namespace bench
