#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "tools/sthal/facts/record.h"

namespace sthal {

// Who speaks in a line of the timeline.
enum class Lane { kTool, kFramework, kHal, kDsp, kEvent, kCapture };

/**
 * What a run prints: one time-stamped line a step, in seconds of kernel boot time since the run
 * began, and headings that explain what comes next.
 *
 * Thread-safe; a line is printed whole. Lines of different threads may be printed a little out of
 * the order of their times.
 */
class Timeline {
  public:
    using Sink = std::function<void(std::string_view text)>;

    // `sink` gets whole lines with their line feeds; standard output when empty.
    explicit Timeline(Sink sink = {});

    // A numbered heading with its explanation, wrapped for a terminal of 100 columns.
    void Heading(std::string_view title, std::string_view explanation);
    // A line that happened now, or at a given boot time.
    void Line(Lane lane, std::string_view text);
    void LineAt(int64_t boottime_ns, Lane lane, std::string_view text);
    // Text as it is, without a time, indented below the line before it.
    void Block(std::string_view text);

    int64_t start_ns() const { return start_ns_; }
    // What becomes of the run's files; gets the tool's own lines and the headings from here.
    RunRecord& record() { return record_; }

  private:
    void Print(const std::string& text);

    const int64_t start_ns_;
    const Sink sink_;
    RunRecord record_;
    std::mutex lock_;
    int headings_ = 0;  // Under lock_.
};

// "1.234 ms", "12.3 s": a duration for a person.
std::string DurationText(int64_t nanoseconds);

}  // namespace sthal
