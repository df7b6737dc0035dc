#pragma once

#include <chrono>
#include <string>

#include "host/common/result.h"
#include "tools/audio/sound.h"

namespace sthal::audio {

struct SpeechOptions {
    std::string program = "espeak-ng";  // Found on the PATH.
    std::string voice = "en-us";
    std::chrono::milliseconds timeout = std::chrono::seconds(30);
};

/**
 * Speaks `text` (UTF-8, 1..4000 bytes) with the espeak-ng program. The same text and options give
 * the same samples, so a recording can hold exactly what a model was made of.
 *
 * @return One channel without silence at its ends. Or why there is none: no such program (and which
 *         package brings it), no such voice, nothing to say, a time-out.
 *
 * Starts a child process and waits for it. Thread-safe.
 */
host::Result<Sound> Speak(const std::string& text, const SpeechOptions& options = {});

}  // namespace sthal::audio
