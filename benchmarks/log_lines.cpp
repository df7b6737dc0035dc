// The log lines of a detection, as they are met after a long sleep: nothing of them in the caches.
#define LOG_TAG "bench"

#include "audio/hal/aidl/soundtrigger/log_line.h"

#include <android-base/logging.h>

#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "benchmarks/fixture.h"
#include "benchmarks/rows.h"

namespace bench {

Row LogLines(const Options& options) {
    constexpr int kLines = 3;
    std::vector<char> other(4 * kMiB);  // More than the caches next to a processor hold.
    const auto cold = [&](std::function<void()> write_line) {
        return [&other, write_lines = Timed([write_line = std::move(write_line)] {
                            for (int i = 0; i < kLines; ++i) write_line();
                        })] {
            std::memset(other.data(), ++other[0], other.size());
            Settle();
            return write_lines();
        };
    };
    const std::string payload = "0123456789";
    return Compare("three log lines of a detection, caches cold", "the same by LOG()",
                   options.Rounds(1000),
                   cold([&] { LOG_LINE(INFO, "recognition with payload: " + payload); }),
                   cold([&] { LOG(INFO) << "recognition with payload: " << payload; }), 1.0);
}

}  // namespace bench
