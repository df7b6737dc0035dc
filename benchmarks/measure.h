#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

// Measuring the library against a bare loop of the same system calls. Both run in the same process,
// in turns, so that other work on the machine affects both alike. Their ratio is judged.
namespace bench {

int64_t NowNs();  // CLOCK_MONOTONIC.

// Durations of one operation that is done many times, in nanoseconds.
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
    std::string bare;     // What the library is compared with.
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

// Does one round and returns its duration in nanoseconds.
using Round = std::function<int64_t()>;

// Runs `library` and `bare` in turns, `rounds` times each, after a tenth of that as warm-up. The
// order of the two changes every time.
Row Compare(std::string what, std::string bare_name, int rounds, const Round& library,
            const Round& bare, std::optional<double> goal);

// A round that does `work` and times it.
Round Timed(std::function<void()> work);

void PrintTable(const std::vector<Row>& rows, std::ostream& out);
void PrintJson(const std::vector<Row>& rows, std::ostream& out);

// Heap allocations that this thread has made so far (malloc and all that is built on it). Other
// threads do not count, because the board serves its nodes from the same process.
uint64_t Allocations();

// Bytes of the heap that this thread has taken and not given back, in the C library's rounded
// blocks.
int64_t HeldBytes();

}  // namespace bench
