#pragma once

#include <android-base/logging.h>

#include <string>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** What LOG_LINE() comes to. */
inline void WriteLogLine(::android::base::LogSeverity severity, const char* tag, const char* file,
                         unsigned int line, const std::string& text) {
    const ::android::base::ErrnoRestorer errno_restorer;
    if (text.find('\n') == std::string::npos) {
        ::android::base::LogMessage::LogLine(file, line, severity, tag, text.c_str());
    } else {
        // LOG() makes several lines of it.
        ::android::base::LogMessage(file, line, severity, tag, -1).stream() << text;
    }
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger

/**
 * LOG(severity) << text without a stream, for the lines that a detection, a start or a stop waits
 * for. The stream's code has left the caches by then, and fetching it takes longer than all else
 * that the library does before the callback. `text` is evaluated only for a line that is written.
 */
#define LOG_LINE(severity, text)                                                        \
    do {                                                                                \
        if (WOULD_LOG(severity)) {                                                      \
            ::vendor::quarno::brindlecove::audio::hal::soundtrigger::WriteLogLine(      \
                    ::android::base::severity, LOG_TAG, __FILE_NAME__, __LINE__, text); \
        }                                                                               \
    } while (false)
