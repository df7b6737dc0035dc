// The recording that a run is about, and the judgement of what was delivered of it.
#include <chrono>
#include <filesystem>
#include <limits>

#include "tools/audio/wav.h"
#include "tools/sthal/findings/delivery.h"
#include "tools/sthal/script/recording.h"
#include "tools/sthal/script/verbs/groups.h"
#include "tools/sthal/script/verbs/tools.h"

namespace sthal {

namespace {

using std::chrono::steady_clock;

// --- making it ---

// Writes it to the output folder and shows it: it is the run's from now on.
VerbResult Take(Session& session, host::Result<Recording> made) {
    if (!made.ok()) return VerbResult::Failed(made.error());
    const std::filesystem::path folder = session.options().output_folder;
    const std::string path = folder / "microphone.wav";
    for (const auto& written : {audio::WriteWav(path, made->sound),
                                audio::WriteWav(folder / "hotword.wav", made->pattern)}) {
        if (!written.ok()) return VerbResult::Failed(written.error());
    }
    session.Show(Draw(*made));
    for (const std::string& note : made->notes) session.Say(note);
    session.Say("wrote " + path + " and what the model is made of beside it");
    session.recording() = std::move(*made);
    return {};
}

host::Result<Recording> Speech(const Values& values) {
    return RecordSpeech(values.Get("TEXT"), !values.Has("unspoken"));
}

host::Result<Recording> Files(const Values& values) {
    return ReadRecording(values.Get("FILE"), values.Get("hotword"));
}

VerbResult RecordText(Session& session, const Values& values) {
    return Take(session, Speech(values));
}

VerbResult RecordPiece(Session& session, const Values& values) {
    return Take(session, RecordMusic(!values.Has("unspoken")));
}

VerbResult RecordFiles(Session& session, const Values& values) {
    constexpr double kThreshold = 0.7;
    auto read = Files(values);
    if (read.ok()) FindPattern(*read, values.Number("threshold", kThreshold));
    return Take(session, std::move(read));
}

// --- waiting for its event ---

VerbResult WaitDetection(Session& session, const Values&) {
    // How long after the end of the recording an event may still be on its way.
    constexpr std::chrono::seconds kLastEventAfter{2};
    Recording* const recording = FindPlayedRecording(session);
    if (recording == nullptr) return NoRecordingPlayed();
    std::optional<steady_clock::time_point> deadline;
    const auto is_over = [&] {
        if ((recording->detection = session.TakeEvent(std::nullopt))) return true;
        if (!recording->playback->IsFinished()) return false;
        if (!deadline) deadline = steady_clock::now() + kLastEventAfter;
        return steady_clock::now() >= *deadline;
    };
    (void)session.WaitUntil(is_over, std::numeric_limits<float>::max());
    return {};
}

// --- judging it ---

VerbResult ExpectAhead(Session& session, const Values&) {
    const Recording* const recording = FindPlayedRecording(session);
    if (recording == nullptr) return NoRecordingPlayed();
    const auto& expected = recording->expected;
    if (!expected || recording->playback->heard_frames() <= expected->begin) return {};
    return VerbResult::Failed(
            "this machine was busy: the hotword had begun when the DSP came back, so nobody could "
            "hear it whole; try again, or with a lower --speed");
}

// Holds the capture against what the microphones have heard of the recording, with some frames
// before it where a capture may reach back that far.
void CompareCapture(Session& session, const Recording& recording, DeliveryFacts& known) {
    const CaptureReader& capture = *session.capture();
    const uint64_t first = recording.playback->first_frame();
    if (known.expected && known.expected->begin < audio::kSampleRateHz) {
        known.lead_frames = std::min<uint64_t>(audio::kSampleRateHz, first);
    }
    const audio::Sound heard = session.phone().Heard(first - known.lead_frames,
                                                     recording.sound.frames() + known.lead_frames);
    known.capture_opened = true;
    known.comparison = capture.CompareWith(heard);
    if (known.expected) {
        known.timestamp_error_ns = capture.stream().first_timestamp_ns() -
                                   recording.playback->HeardAtNs(known.expected->end - 1);
    }
    if (!capture.file().empty()) session.Say("wrote " + capture.file());
    session.Say(known.comparison.ToString());
}

VerbResult ExpectDelivery(Session& session, const Values&) {
    const Recording* const recording = FindPlayedRecording(session);
    if (recording == nullptr) return NoRecordingPlayed();
    if (VerbResult stopped = session.StopCapture(); !stopped.ok()) return stopped;
    DeliveryFacts known{.wants_event = recording->model.has_value(),
                        .expected = recording->expected,
                        .preroll_ms = virtual_dsp::DspOptions{}.preroll_ms};  // The board's.
    if (const auto& model = recording->model) {
        known.is_ambient = model->is_generic;
        known.handle = model->handle;
    }
    if (const auto& event = recording->detection) {
        known.event_handle = event->handle;
        known.callback_latency_ns = event->entered_ns - event->record_ns;
    }
    if (session.capture() != nullptr) CompareCapture(session, *recording, known);
    session.SetDelivery(Judge(known));
    if (session.delivery()->problem != Delivery::Problem::kNone) return {.end = VerbsEnd::kFailed};
    const bool is_quiet = known.wants_event && !known.event_handle;
    return {.end = is_quiet ? VerbsEnd::kNothingSpoken : VerbsEnd::kDone};
}

}  // namespace

std::span<const Verb> RecordingVerbs() {
    // clang-format off
    static constexpr Verb kVerbs[] = {
        {.name = "recording speech", .form = "TEXT [unspoken]", .help = "make the run's recording: a chat in which the text is said, or is not, and the text alone for a model", .run = RecordText, .check = [](const Values& values) { return WithoutValue(Speech(values)); }},
        {.name = "recording music", .form = "[unspoken]", .help = "the same of music, and a part of it for a model", .run = RecordPiece},
        {.name = "recording wav", .form = "FILE hotword FILE [threshold RATIO]", .help = "the same of a WAV file, and of one with the hotword cut out of it, which is in the recording where it fits this well", .run = RecordFiles, .check = [](const Values& values) { return WithoutValue(Files(values)); }},
        {.name = "wait detection", .form = "", .help = "wait for the next event, until 2 s after the recording's end; none is no failure", .needs = PhoneParts::kService, .run = WaitDetection},
        {.name = "expect hotword ahead", .form = "", .help = "the recording's hotword has not begun yet", .needs = PhoneParts::kRoom, .run = ExpectAhead},
        {.name = "expect delivery", .form = "", .help = "the event came if the hotword was said, at its place, and the capture is what the microphones heard of the recording", .needs = PhoneParts::kAll, .run = ExpectDelivery},
    };
    // clang-format on
    return kVerbs;
}

}  // namespace sthal
