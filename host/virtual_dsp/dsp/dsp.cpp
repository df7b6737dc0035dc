#include "host/virtual_dsp/dsp/dsp.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <utility>

#include "host/virtual_dsp/dsp/dsp_clock.h"
#include "host/virtual_dsp/dsp/dsp_impl.h"

namespace virtual_dsp {
namespace {

// Hear() works through long input in pieces, so that a detection finds its audio still in history.
constexpr size_t kSliceFrames = 1600;

uint16_t RecordId(Engine engine) {
    switch (engine) {
        case Engine::kHotword:
            return wire::kHotwordDetected;
        case Engine::kAmbientMusic:
            return wire::kAmbientMusicDetected;
        case Engine::kAmbientMusicBreak:
            return wire::kAmbientMusicBreakDetected;
    }
    return 0;
}

std::string ScoreText(const Detection& detection) {
    char text[sizeof(wire::NotificationRecord::payload)];
    std::snprintf(text, sizeof(text), "score=%.2f frame=%" PRIu64, double{detection.score},
                  detection.last_frame);
    return text;
}

}  // namespace

// --- detections -------------------------------------------------------------------------------

bool Dsp::Impl::Hear(std::span<const int16_t> frames, int64_t last_frame_ns) {
    const size_t count = frames.size() / kMicrophones;
    if (count == 0) return false;
    if (const int64_t pause_ns = frame_times_.AddBlock(count, last_frame_ns); pause_ns != 0) {
        Note("microphone", "nothing heard for " + std::to_string(pause_ns / 1'000'000) +
                                   " ms before frame " + std::to_string(history_.end()) +
                                   " (its source paused, or this machine was busy)");
    }
    if (!up_) {
        history_.Skip(count);
        return true;
    }
    frames = frames.first(count * kMicrophones);
    if (settings_.mic_swap) {
        swapped_.resize(frames.size());
        for (size_t i = 0; i < frames.size(); ++i) swapped_[i] = frames[i ^ 1];
        frames = swapped_;
    }
    while (!frames.empty()) {
        const size_t slice = std::min(frames.size(), kSliceFrames * kMicrophones);
        HearSlice(frames.first(slice));
        frames = frames.subspan(slice);
    }
    if (capture(PcmPort::kHotword).owner()) woken_.insert(Readiness::kHotwordPcm);
    if (capture(PcmPort::kAmbient).owner()) woken_.insert(Readiness::kAmbientPcm);
    return true;
}

void Dsp::Impl::HearSlice(std::span<const int16_t> frames) {
    history_.Append(frames);
    mono_.resize(frames.size() / kMicrophones);
    for (size_t i = 0; i < mono_.size(); ++i) mono_[i] = frames[i * kMicrophones];
    for (Engine listening : kEngines) {
        if (const auto detection = engine(listening).Hear(mono_)) {
            Raise(listening, *detection, ScoreText(*detection));
        }
    }
}

void Dsp::Impl::Raise(Engine of, const Detection& detection, const std::string& text) {
    engine(of).MarkDetected();
    if (of == Engine::kHotword) {
        hotword_ns_ = history_.end() == 0 ? Now() : frame_times_.At(detection.last_frame);
    }

    const auto preroll =
            static_cast<uint64_t>(std::max(options_.preroll_ms, 0)) * wire::kSampleRateHz / 1000;
    const uint64_t end = std::min(detection.last_frame + 1, history_.end());
    const uint64_t before = std::min(end, preroll + detection.template_frames);
    const uint64_t first = std::max(end - before, history_.oldest());
    Capture& audio = capture(PortOf(of));
    if (audio.owner() && audio.owner() != of) {
        Note("pcm", Name(*audio.owner()) + " capture replaced by one of " + Name(of));
    }
    audio.Begin(of, first);

    wire::NotificationRecord record{};
    record.id = RecordId(of);
    std::copy_n(text.begin(), std::min(text.size(), record.payload.size() - 1),
                record.payload.begin());
    unread_.emplace_back(of, record);

    Note("detector",
         Name(of) + " detected, " + text + ", captured from frame " + std::to_string(first));
    woken_.insert(Readiness::kNotification);
    WakeReaderOf(PortOf(of));
}

// What an engine has detected is void once it is told something else.
void Dsp::Impl::DropDetections(Engine of, const char* why) {
    if (std::erase_if(unread_, [of](const auto& record) { return record.first == of; }) != 0) {
        Note("notification", "unread " + Name(of) + " record dropped by " + why);
    }
    if (Captures(of)) {
        Capture& audio = capture(PortOf(of));
        Note("pcm", Name(of) + " capture ended by " + why + " after " +
                            std::to_string(audio.bytes_delivered()) + " bytes");
        audio.End();
        WakeReaderOf(PortOf(of));
    }
}

void Dsp::Impl::WakeReaderOf(PcmPort port) {
    woken_.insert(port == PcmPort::kHotword ? Readiness::kHotwordPcm : Readiness::kAmbientPcm);
}

std::optional<wire::NotificationRecord> Dsp::Impl::TakeNotification() {
    if (unread_.empty()) return std::nullopt;
    const auto [of, record] = unread_.front();
    unread_.pop_front();
    Note("notification", Name(of) + " record taken");
    return record;
}

int Dsp::Impl::ReadPcm(PcmPort port, std::span<uint8_t> out) {
    if (!up_) return -ENODEV;
    Capture& audio = capture(port);
    const bool is_first = audio.bytes_delivered() == 0;
    const Capture::ReadResult read = audio.Read(history_, out);
    if (read.lost != 0) {
        Note("pcm", Name(port) + " overrun: " + std::to_string(read.lost) +
                            " frames lost before frame " + std::to_string(read.first));
    }
    if (is_first && read.bytes != 0) {
        Note("pcm", Name(port) + " read begins with frame " + std::to_string(read.first));
    }
    return static_cast<int>(read.bytes);
}

// --- the rest ---------------------------------------------------------------------------------

std::string Dsp::Impl::Clock() const {
    if (!up_) return {};
    const auto boottime_ns = static_cast<uint64_t>(Now());
    const auto ahead_ns = static_cast<uint64_t>(options_.clock_ahead_ns);
    return std::to_string(NanosecondsToTicks(boottime_ns + ahead_ns)) + " " +
           std::to_string(boottime_ns) + "\n";
}

bool Dsp::Impl::SetUp(bool up) {
    if (up_ == up) return false;
    up_ = up;
    Note("life", up ? "boot" : "crash");
    if (!up) {
        for (DetectionEngine& lost : engines_) lost.Unload();
        for (Capture& lost : captures_) lost.End();
        history_.Skip(0);
        unread_.clear();
        piece_.clear();
        hotword_ns_.reset();
        settings_ = {};
        tuning_.clear();
    }
    woken_ = {Readiness::kNotification, Readiness::kHotwordPcm, Readiness::kAmbientPcm};
    return true;
}

Dsp::Settings Dsp::Impl::CurrentSettings() const {
    Settings current = settings_;
    current.tuning.assign(tuning_.begin(), tuning_.end());
    return current;
}

void Dsp::Impl::Note(std::string source, std::string text) {
    JournalEntry entry;
    entry.source = std::move(source);
    entry.text = std::move(text);
    journal_.Append(std::move(entry));
}

// --- the class that everybody sees ------------------------------------------------------------

Dsp::Dsp(DspOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Dsp::~Dsp() = default;

int Dsp::Execute(std::span<const uint8_t> command, std::vector<uint8_t>* reply) {
    return impl_->Do([&] { return impl_->Execute(command, reply); });
}

int Dsp::WriteModelPiece(std::span<const uint8_t> piece) {
    return impl_->Do([&] { return impl_->WritePiece(piece); });
}

size_t Dsp::PcmBytesReady(PcmPort port) const {
    return impl_->See([&] { return impl_->capture(port).BytesReady(impl_->history_); });
}

uint64_t Dsp::PcmCapturesEnded(PcmPort port) const {
    return impl_->See([&] { return impl_->capture(port).ended(); });
}

int Dsp::ReadPcm(PcmPort port, std::span<uint8_t> out) {
    return impl_->Do([&] { return impl_->ReadPcm(port, out); });
}

bool Dsp::HasNotification() const {
    return impl_->See([&] { return !impl_->unread_.empty(); });
}

std::optional<wire::NotificationRecord> Dsp::TakeNotification() {
    return impl_->Do([&] { return impl_->TakeNotification(); });
}

std::string Dsp::ReadClock() const {
    return impl_->See([&] { return impl_->Clock(); });
}

void Dsp::Hear(std::span<const int16_t> frames, int64_t last_frame_ns) {
    impl_->Do([&] { return impl_->Hear(frames, last_frame_ns); });
}

void Dsp::Crash() {
    impl_->Do([&] { return impl_->SetUp(false); });
}

void Dsp::Boot() {
    impl_->Do([&] { return impl_->SetUp(true); });
}

bool Dsp::IsUp() const {
    return impl_->See([&] { return impl_->up_; });
}

void Dsp::SetReadinessListener(std::function<void(Readiness)> listener) {
    impl_->listener_ = std::move(listener);
}

Journal& Dsp::journal() {
    return impl_->journal_;
}

Dsp::EngineView Dsp::engine(Engine engine) const {
    return impl_->See([&] {
        const DetectionEngine& seen = impl_->engine(engine);
        EngineView view;
        view.model_loaded = seen.has_model();
        view.detecting = seen.state() == DetectionEngine::State::kDetecting;
        view.armed_without_model = seen.state() == DetectionEngine::State::kArmedWithoutModel;
        view.detected = seen.state() == DetectionEngine::State::kDetected;
        view.capturing = impl_->Captures(engine);
        view.model_bytes = static_cast<uint32_t>(seen.bytes().size());
        view.model_crc32 = Crc32(seen.bytes());
        return view;
    });
}

std::vector<uint8_t> Dsp::model_bytes(Engine engine) const {
    return impl_->See([&] { return impl_->engine(engine).bytes(); });
}

Dsp::Settings Dsp::settings() const {
    return impl_->See([&] { return impl_->CurrentSettings(); });
}

}  // namespace virtual_dsp
