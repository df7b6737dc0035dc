// Captures of audio.
#include "tools/sthal/script/verbs/groups.h"
#include "tools/sthal/script/verbs/tools.h"

namespace sthal {

namespace {

template <bool kIsInternal>
VerbResult Start(Session& session, const Values& values) {
    CaptureReader::Until until;
    if (const double seconds = values.Seconds("for"); seconds > 0) {
        until.frames = static_cast<size_t>(seconds * audio::kSampleRateHz);
    }
    if (values.Has("to-end")) {
        const Recording* const recording = FindPlayedRecording(session);
        if (recording == nullptr) return NoRecordingPlayed();
        until.end_of = recording->playback;
    }
    return session.StartCapture({.io_handle = IoHandleOf(values),
                                 .channels = static_cast<int>(values.Number("channels", 2)),
                                 .is_internal = kIsInternal},
                                until, values.Get("wav"));
}

}  // namespace

std::span<const Verb> CaptureVerbs() {
    // clang-format off
    static constexpr auto kService = PhoneParts::kService;
    static constexpr Verb kVerbs[] = {
        {"capture start", "[io COUNT] [channels CHANNELS] [for TIME] [to-end] [wav FILE]",
         "read the audio of a detection, for a time, to the end of the run's recording or until it is stopped, into a file", kService, Start<false>},
        {"capture zero-latency", "[channels CHANNELS] [for TIME] [to-end] [wav FILE]",
         "read what the DSP hears from now on, without a detection", kService, Start<true>},
        {"capture stop", "", "end the capture", kService,
         [](Session& session, const Values&) { return session.StopCapture(); }},
    };
    // clang-format on
    return kVerbs;
}

}  // namespace sthal
