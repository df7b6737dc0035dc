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
 * Writes what LOG(severity) << text writes, without the stream that LOG() makes for each line. Its
 * code and tables have long left the caches when a detection comes, and fetching them takes longer
 * than all else that the library does until the callback is called. For the lines that a detection,
 * a start or a stop waits for; elsewhere LOG() reads better. `text` is not evaluated for a line
 * that is not written.
 */
#define LOG_LINE(severity, text)                                                        \
    do {                                                                                \
        if (WOULD_LOG(severity)) {                                                      \
            ::vendor::quarno::brindlecove::audio::hal::soundtrigger::WriteLogLine(      \
                    ::android::base::severity, LOG_TAG, __FILE_NAME__, __LINE__, text); \
        }                                                                               \
    } while (false)
