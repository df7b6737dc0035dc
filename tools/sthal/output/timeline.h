#pragma once

#include <android-base/logging.h>
#include <android-base/thread_annotations.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "tools/sthal/facts/run_record.h"

namespace sthal {

/**
 * Shows the facts of a run as they come: one time-stamped line each, in seconds of kernel boot time
 * since the run began, and headings that explain what comes next.
 *
 * Thread-safe; a line is printed whole. Lines of different threads may be printed a little out of
 * the order of their times.
 */
class Timeline {
  public:
    using Sink = std::function<void(std::string_view text)>;

    // `sink` gets whole lines with their line feeds.
    Timeline(Sink sink, int64_t start_ns);

    void Show(const Fact& fact);
    // Text as it is, without a time, indented below the line before it.
    void ShowBlock(std::string_view text);

    // Shows the HAL's log lines from this severity on, and its changes of state; below INFO the
    // DSP's details as well.
    void ShowLogFrom(android::base::LogSeverity severity) { shown_from_ = severity; }

  private:
    enum class Lane { kTool, kFramework, kHal, kDsp, kEvent, kCapture };

    void ShowCall(const Call& call);
    void ShowLogLine(const LogLine& line);
    void ShowRead(const StreamRead& read);
    void ShowStep(const StoryStep& step) EXCLUDES(lock_);
    void Line(int64_t ns, Lane lane, std::string_view text);
    void Print(const std::string& text) EXCLUDES(lock_);

    const int64_t start_ns_;
    const Sink sink_;
    std::atomic<android::base::LogSeverity> shown_from_{android::base::WARNING};
    std::mutex lock_;
    int headings_ GUARDED_BY(lock_) = 0;
};

}  // namespace sthal
