#include "tools/sthal/script/session.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <utility>

#include "host/virtual_dsp/board/example_tuning.h"
#include "tools/sthal/output/finding_texts.h"
#include "tools/sthal/phone/virtual_phone.h"

namespace sthal {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLookAgain{1};
constexpr std::chrono::seconds kOnItsWay{1};

host::Result<std::unique_ptr<Phone>> Boot(const SessionOptions& options, RunRecord& record) {
    if (options.boot) return options.boot(record);
    return BootVirtualPhone({.speed = options.speed,
                             .noise_seed = options.seed,
                             .tuning_file = virtual_dsp::ExampleTuningFile()},
                            record);
}

}  // namespace

Session::Session(SessionOptions options, Terminal& terminal)
    : options_(std::move(options)),
      terminal_(terminal),
      record_([this](const Fact& fact) { Take(fact); }),
      timeline_([this](std::string_view text) { terminal_.Print(text); }, record_.start_ns()) {
    if (!options_.title.empty()) record_.Enable(options_.title);
}

Session::~Session() = default;

void Session::Take(const Fact& fact) {
    if (!options_.is_shown || options_.is_shown(fact)) timeline_.Show(fact);
    progress_.Follow(fact);
    if (const auto* const line = std::get_if<LogLine>(&fact)) {
        log_.Add(line->text);
    }
}

host::Result<void> Session::StartPhone() {
    auto phone = Boot(options_, record_);
    if (!phone.ok()) return host::Error(phone.error());
    phone_ = std::move(*phone);
    if (phone_->board() != nullptr) ClearFaults();
    if (phone_->service() != nullptr) {
        (void)service().Initialize();
        service().ReportDsp(true);
    }
    if (phone_->board() != nullptr) {
        fault_lifter_ = std::make_unique<FaultLifter>(
                [this] { return IsInterrupted(); },
                [this] {
                    Say("interrupted, but a call goes on: all faults are lifted");
                    board().faults().Clear();
                });
    }
    return {};
}

host::Result<void> Session::CheckParts(PhoneParts needed) const {
    if (phone_ == nullptr) return {};
    if (Include(needed, PhoneParts::kService) && phone_->service() == nullptr) {
        return host::Error("expected a phone with an audio service; this one is a DSP");
    }
    if (Include(needed, PhoneParts::kBoard) && phone_->board() == nullptr) {
        return host::Error("expected a phone on the virtual board; this one is not");
    }
    return {};
}

Verdict Session::VerdictOn(const VerbResult& result, std::string subject) const {
    const Service* const service = phone_ == nullptr ? nullptr : phone_->service();
    return sthal::VerdictOn({.verbs = result.end,
                             .subject = std::move(subject),
                             .failure = result.failure,
                             .delivery = delivery_,
                             .broken = service == nullptr ? std::nullopt : service->broken_rule()});
}

host::Result<void> Session::End(const Verdict& verdict, const RunFiles& files) {
    fault_lifter_ = {};
    if (last_fault_) ClearFaults();  // Nothing may be held by one when it is taken down.
    capture_.reset();
    phone_.reset();
    if (!files.AreWanted()) return {};
    record_.SetVerdict(verdict);
    progress_.Show("writing the run's files");
    auto written = WriteRunFiles(record_.Snapshot(), files);
    progress_.End();
    return written;
}

// --- models ---

std::vector<std::string> Session::ModelNames() const {
    std::vector<std::string> names;
    for (const auto& [name, ignored] : models_) names.push_back(name);
    return names;
}

LoadedModel* Session::FindModel(const std::string& name) {
    if (const auto found = models_.find(name); found != models_.end()) return &found->second;
    for (auto& [other, model] : models_) {
        if (std::to_string(model.handle) == name) return &model;
    }
    return nullptr;
}

void Session::NoteResult(int result) {
    last_result_ = result;
    if (result != 0) failed_result_ = result;
}

std::optional<int> Session::TakeFailedResult() {
    return std::exchange(failed_result_, std::nullopt);
}

// --- the room ---

void Session::Play(const audio::Sound& recording, std::shared_ptr<const audio::Sound> said,
                   size_t said_at) {
    playback_ = phone_->Play(recording, std::move(said), said_at);
}

bool Session::WaitUntil(const std::function<bool()>& done, double seconds, bool exactly) {
    constexpr double kForEver = 1e9;  // Seconds; what is more would not fit into frames.
    const double wanted = std::min(seconds, kForEver) * audio::kSampleRateHz;
    const uint64_t end = phone_->HeardFrames() + static_cast<uint64_t>(wanted);
    std::optional<steady_clock::time_point> deadline;
    bool is_done = false;
    while (!(is_done = done()) && !IsInterrupted()) {
        if (!deadline && phone_->HeardFrames() >= end) {
            deadline = steady_clock::now();
            if (!exactly) *deadline += kOnItsWay;
        }
        if (deadline && steady_clock::now() >= *deadline) break;
        if (playback_ != nullptr) {
            progress_.ShowPlayback(playback_->heard_frames(), playback_->frames());
        }
        std::this_thread::sleep_for(kLookAgain);
    }
    progress_.End();
    return is_done;
}

VerbResult Session::NotInTime(std::string what, std::string seen) const {
    if (IsInterrupted()) return VerbResult::Interrupted();
    return VerbResult::Expected(std::move(what), std::move(seen));
}

// --- events ---

std::optional<Event> Session::TakeEvent(std::optional<int> handle) {
    while (auto event = service().framework().Take()) events_.push_back(std::move(*event));
    const auto found = std::ranges::find_if(
            events_, [&](const Event& event) { return !handle || event.handle == *handle; });
    if (found == events_.end()) return std::nullopt;
    last_event_ = *found;
    events_.erase(found);
    return last_event_;
}

std::string Session::DescribeEvents() const {
    std::string text;
    for (const Event& event : events_) text += (text.empty() ? "" : "; ") + ToText(event);
    return text.empty() ? "no event" : text;
}

// --- captures ---

VerbResult Session::StartCapture(const CaptureOptions& options, const CaptureReader::Until& until,
                                 const std::string& file) {
    if (VerbResult stopped = StopCapture(); !stopped.ok()) return stopped;
    std::filesystem::path path;
    if (!file.empty()) {
        path = std::filesystem::path(options_.output_folder) / file;
        // Now, and not after the capture.
        if (access(path.parent_path().c_str(), W_OK) != 0) {
            return VerbResult::Failed("cannot write into the folder of " + path.string() + ": " +
                                      std::strerror(errno) + "; choose another one");
        }
    }
    auto stream = CaptureStream::Open(*phone_, record_, options);
    NoteResult(stream.ok() ? 0 : -EINVAL);
    if (!stream.ok()) return {};
    const bool is_ambient =
            !options.is_internal && std::ranges::any_of(models_, [&](const auto& entry) {
                return entry.second.io_handle == options.io_handle && entry.second.is_generic;
            });
    capture_ = std::make_unique<CaptureReader>(*phone_, std::move(*stream), until, is_ambient,
                                               path.string());
    return {};
}

VerbResult Session::StopCapture() {
    return capture_ == nullptr ? VerbResult{} : VerbResult::Of(capture_->Stop());
}

VerbResult Session::AwaitCapture(double seconds) {
    if (capture_ == nullptr) return VerbResult::Expected("a capture", "none so far");
    const auto ended = [this] { return capture_->IsFinished(); };
    if (WaitUntil(ended, seconds * std::max(1.0, options_.speed))) return StopCapture();
    return NotInTime("the end of the capture", "it going on");
}

// --- around the HAL ---

VerbResult Session::RestartService() {
    VerbResult stopped = StopCapture();
    capture_.reset();
    models_.clear();
    service().Restart();
    return stopped;
}

void Session::ClearFaults() {
    board().faults().Load({.seed = options_.seed, .rules = {}});
    last_fault_.reset();
}

void Session::Route(const std::string& usecase, const std::string& device) {
    if (device == "none") {
        routes_.erase(usecase);
    } else {
        routes_[usecase] = device;
    }
    std::vector<sthal::Route> routes;
    for (const auto& [source, sink] : routes_) routes.push_back({source, sink});
    service().SetRoutes(std::move(routes));
}

}  // namespace sthal
