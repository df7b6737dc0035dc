#pragma once

#include <cstdint>
#include <string>

#include "host/common/result.h"
#include "tools/audio/wav.h"
#include "tools/sthal/script/grammar.h"
#include "tools/sthal/script/session.h"

// What several groups of verbs have in common.
namespace sthal {

// Of a capture.
inline int IoHandleOf(const Values& values) {
    constexpr double kDefault = 13;
    return static_cast<int>(values.Number("io", kDefault));
}

// Only whether there is a value.
template <typename T>
host::Result<void> WithoutValue(const host::Result<T>& result) {
    if (result.ok()) return {};
    return host::Error(result.error());
}

inline void SayConversions(Session& session, const std::string& path,
                           const audio::DecodedAudio& file) {
    for (std::string text : file.conversions) session.Say(text.insert(0, path + ": "));
}

// The run's recording, once it is played; else null.
inline Recording* FindPlayedRecording(Session& session) {
    auto& recording = session.recording();
    return recording && recording->playback ? &*recording : nullptr;
}

inline VerbResult NoRecordingPlayed() {
    return VerbResult::Expected("a recording that is played", "none so far");
}

inline std::string Times(uint64_t count) {
    return std::to_string(count) + (count == 1 ? " time" : " times");
}

}  // namespace sthal
