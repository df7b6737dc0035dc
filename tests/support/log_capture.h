#pragma once

#include <android-base/logging.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/deadline.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/**
 * Keeps what this process logs, in place of the standard logger, for as long as it lives. A line is
 * kept as severity, tag (without the parts that all tags have in common) and text: "E Hal:
 * Initialize: ..." for the tag StHal::SoundTriggerHal. Made and destroyed while no other thread
 * logs; otherwise thread-safe.
 */
class LogCapture {
  public:
    using Lines = std::vector<std::string>;

    LogCapture() {
        ::android::base::SetLogger([kept = kept_](auto, auto severity, const char* tag, const char*,
                                                  unsigned, const char* text) {
            std::string name(tag == nullptr ? "" : tag);
            for (const std::string common : {"StHal::", "SoundTrigger"}) {
                if (name.starts_with(common)) name.erase(0, common.size());
            }
            std::lock_guard lock(kept->lock);
            kept->lines.push_back("VDIWEFF"[severity] + (" " + name) + ": " + text);
            kept->grown.notify_all();
        });
    }
    ~LogCapture() {
        SetMinimum(normal_minimum_);
        ::android::base::SetLogger(::android::base::StderrLogger);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Lines of a lower severity are not logged. The minimum is INFO unless this is called.
    void SetMinimum(::android::base::LogSeverity severity) {
        ::android::base::SetMinimumLogSeverity(severity);
    }

    // Removes and returns the lines: all of them, or those of these severities.
    Lines Take(const std::string& severities = "VDIWEF") {
        std::lock_guard lock(kept_->lock);
        Lines taken;
        std::erase_if(kept_->lines, [&](const std::string& line) {
            if (severities.find(line[0]) == severities.npos) return false;
            taken.push_back(line);
            return true;
        });
        return taken;
    }
    Lines TakeProblems() { return Take("WEF"); }

    ptrdiff_t Count(const std::string& line) const {
        std::lock_guard lock(kept_->lock);
        return std::ranges::count(kept_->lines, line);
    }
    void WaitFor(const std::string& line, ptrdiff_t count = 1) {
        std::unique_lock lock(kept_->lock);
        EXPECT_TRUE(kept_->grown.wait_for(
                lock, kDeadline, [&] { return std::ranges::count(kept_->lines, line) >= count; }))
                << "not logged in time: " << line << " in "
                << ::testing::PrintToString(kept_->lines);
    }
    // These lines occur in this order; others may stand between them.
    ::testing::AssertionResult HasInOrder(const Lines& lines) const {
        std::lock_guard lock(kept_->lock);
        auto next = kept_->lines.begin();
        for (const std::string& line : lines) {
            next = std::ranges::find(next, kept_->lines.end(), line);
            if (next++ != kept_->lines.end()) continue;
            return ::testing::AssertionFailure() << "missing from here on: " << line << " in "
                                                 << ::testing::PrintToString(kept_->lines);
        }
        return ::testing::AssertionSuccess();
    }

  private:
    // Shared with the logger: a late thread must not log into an object that is gone.
    struct Kept {
        std::mutex lock;
        std::condition_variable grown;
        Lines lines;
    };

    const ::android::base::LogSeverity normal_minimum_ = ::android::base::GetMinimumLogSeverity();
    const std::shared_ptr<Kept> kept_ = std::make_shared<Kept>();
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
