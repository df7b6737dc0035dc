#include "host/virtual_dsp/dsp/dsp.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "host/virtual_dsp/dsp/dsp_clock.h"
#include "host/virtual_dsp/dsp/dsp_impl.h"

namespace virtual_dsp {
namespace {

// Hear() works through long input in slices, so that a detection finds its audio still in history.
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

}  // namespace

DetectionEngine& Dsp::Impl::engine(Engine of) {
    return engines_[static_cast<size_t>(of) - 1];
}

Capture& Dsp::Impl::capture(PcmPort port) {
    return captures_[static_cast<size_t>(port)];
}

bool Dsp::Impl::Captures(Engine of) {
    return capture(PortOf(of)).owner() == of;
}

uint64_t Dsp::Impl::PresentFrame() const {
    return history_.end() == 0 ? 0 : history_.end() - 1;
}

// --- detections -------------------------------------------------------------------------------

bool Dsp::Impl::Hear(std::span<const int16_t> frames, int64_t last_frame_ns) {
    const size_t count = frames.size() / kMicrophones;
    if (count == 0) return false;
    if (const int64_t pause_ns = frame_times_.AddBlock(count, last_frame_ns); pause_ns != 0) {
        journal_.Append(MicrophonePaused{.pause_ns = pause_ns, .frame = history_.end()});
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
            Raise(listening, DetectionRaised::Origin::kHeard, *detection);
        }
    }
}

void Dsp::Impl::Raise(Engine of, DetectionRaised::Origin origin, const Detection& detection) {
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
        journal_.Append(CaptureReplaced{.engine = *audio.owner(), .by = of});
    }
    audio.Begin(of, first);

    const DetectionRaised raised{.engine = of,
                                 .origin = origin,
                                 .frame = detection.last_frame,
                                 .score = double{detection.score},
                                 .threshold = double{engine(of).threshold()},
                                 .captured_from = first};
    const std::string text = RecordPayload(raised);
    wire::NotificationRecord record{};
    record.id = RecordId(of);
    std::copy_n(text.begin(), std::min(text.size(), record.payload.size() - 1),
                record.payload.begin());
    unread_.emplace_back(of, record);

    journal_.Append(raised);
    woken_.insert(Readiness::kNotification);
    WakeReaderOf(PortOf(of));
}

// What an engine has detected is void once it is told something else.
void Dsp::Impl::DropDetections(Engine of, VoidedBy cause) {
    if (std::erase_if(unread_, [of](const auto& record) { return record.first == of; }) != 0) {
        journal_.Append(RecordDropped{.engine = of, .cause = cause});
    }
    if (Captures(of)) {
        Capture& audio = capture(PortOf(of));
        journal_.Append(
                CaptureEnded{.engine = of, .cause = cause, .bytes = audio.bytes_delivered()});
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
    journal_.Append(RecordTaken{.engine = of});
    return record;
}

int Dsp::Impl::ReadPcm(PcmPort port, std::span<uint8_t> out) {
    if (!up_) return -ENODEV;
    Capture& audio = capture(port);
    const bool is_first = audio.bytes_delivered() == 0;
    const Capture::ReadResult read = audio.Read(history_, out);
    if (read.lost != 0) {
        journal_.Append(CaptureOverrun{.port = port, .lost = read.lost, .frame = read.first});
    }
    if (is_first && read.bytes != 0) {
        journal_.Append(CaptureReadBegun{.port = port, .frame = read.first});
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
    journal_.Append(PowerChanged{.is_up = up});
    if (!up) {
        for (DetectionEngine& lost : engines_) lost.Unload();
        for (Capture& lost : captures_) lost.End();
        history_.Skip(0);
        unread_.clear();
        chunk_.clear();
        hotword_ns_.reset();
        settings_ = {};
        tuning_.clear();
    }
    woken_ = {Readiness::kNotification, Readiness::kHotwordPcm, Readiness::kAmbientPcm};
    return true;
}

Dsp::EngineView Dsp::Impl::View(Engine of) {
    const DetectionEngine& seen = engine(of);
    EngineView view;
    view.model_loaded = seen.has_model();
    view.detecting = seen.state() == DetectionEngine::State::kDetecting;
    view.armed_without_model = seen.state() == DetectionEngine::State::kArmedWithoutModel;
    view.detected = seen.state() == DetectionEngine::State::kDetected;
    view.capturing = Captures(of);
    view.model_bytes = static_cast<uint32_t>(seen.bytes().size());
    view.model_crc32 = Crc32(seen.bytes());
    return view;
}

Dsp::Settings Dsp::Impl::CurrentSettings() const {
    Settings current = settings_;
    current.tuning.assign(tuning_.begin(), tuning_.end());
    return current;
}

// --- the class that everybody sees ------------------------------------------------------------

Dsp::Dsp(DspOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Dsp::~Dsp() = default;

int Dsp::Execute(std::span<const uint8_t> command, std::vector<uint8_t>* reply) {
    return impl_->ChangeAndNotify(&Impl::Execute, command, reply);
}

int Dsp::WriteModelChunk(std::span<const uint8_t> chunk) {
    return impl_->ChangeAndNotify(&Impl::WriteChunk, chunk);
}

size_t Dsp::PcmBytesReady(PcmPort port) const {
    std::lock_guard lock(impl_->lock_);
    return impl_->capture(port).BytesReady(impl_->history_);
}

uint64_t Dsp::PcmCapturesEnded(PcmPort port) const {
    std::lock_guard lock(impl_->lock_);
    return impl_->capture(port).ended();
}

int Dsp::ReadPcm(PcmPort port, std::span<uint8_t> out) {
    return impl_->ChangeAndNotify(&Impl::ReadPcm, port, out);
}

bool Dsp::HasNotification() const {
    std::lock_guard lock(impl_->lock_);
    return !impl_->unread_.empty();
}

std::optional<wire::NotificationRecord> Dsp::TakeNotification() {
    return impl_->ChangeAndNotify(&Impl::TakeNotification);
}

std::string Dsp::ReadClock() const {
    std::lock_guard lock(impl_->lock_);
    return impl_->Clock();
}

void Dsp::Hear(std::span<const int16_t> frames, int64_t last_frame_ns) {
    impl_->ChangeAndNotify(&Impl::Hear, frames, last_frame_ns);
}

void Dsp::Crash() {
    impl_->ChangeAndNotify(&Impl::SetUp, false);
}

void Dsp::Boot() {
    impl_->ChangeAndNotify(&Impl::SetUp, true);
}

bool Dsp::IsUp() const {
    std::lock_guard lock(impl_->lock_);
    return impl_->up_;
}

void Dsp::SetReadinessListener(std::function<void(Readiness)> listener) {
    impl_->listener_ = std::move(listener);
}

Journal& Dsp::journal() {
    return impl_->journal_;
}

Dsp::EngineView Dsp::engine(Engine engine) const {
    std::lock_guard lock(impl_->lock_);
    return impl_->View(engine);
}

std::vector<uint8_t> Dsp::model_bytes(Engine engine) const {
    std::lock_guard lock(impl_->lock_);
    return impl_->engine(engine).bytes();
}

Dsp::Settings Dsp::settings() const {
    std::lock_guard lock(impl_->lock_);
    return impl_->CurrentSettings();
}

}  // namespace virtual_dsp
