#include "tools/sthal/script/session.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <thread>
#include <utility>

#include "host/virtual_dsp/board/example_tuning.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "host/virtual_dsp/nodes/fault_text.h"

namespace sthal {

namespace {

using ::aidl::android::media::soundtrigger::RecognitionConfig;
using ::aidl::android::media::soundtrigger::SoundModelType;
using std::chrono::steady_clock;
using ::vendor::quarno::brindlecove::audio::hal::audio::router::RoutingGraph;

constexpr std::chrono::milliseconds kLookAgain{1};
constexpr std::chrono::seconds kOnItsWay{1};
constexpr size_t kKeptLogLines = 2000;

size_t FramesOf(double seconds) {
    return static_cast<size_t>(seconds * audio::kSampleRateHz);
}

}  // namespace

audio::Result<std::unique_ptr<Session>> Session::Begin(const SessionOptions& options,
                                                       Terminal& terminal) {
    using Begun = audio::Result<std::unique_ptr<Session>>;
    std::unique_ptr<Session> session(new Session(options, terminal));
    if (!options.title.empty()) session->timeline_.record().Enable(options.title);
    PhoneOptions phone_options;
    phone_options.speed = options.speed;
    phone_options.tuning_file = virtual_dsp::ExampleTuningFile();
    phone_options.noise_seed = options.seed;
    phone_options.on_log = [self = session.get()](std::string_view line) {
        std::lock_guard lock(self->log_lock_);
        self->log_.emplace_back(line);
        if (self->log_.size() > kKeptLogLines) self->log_.pop_front();
    };
    phone_options.on_model_piece = [self = session.get()] { self->progress_.AddModelPiece(); };
    auto phone = Phone::Boot(phone_options, session->timeline_);
    if (!phone) return Begun::Error(phone.error);
    session->phone_ = std::move(*phone.value);
    session->ClearFaults();
    (void)session->phone_->Initialize();
    session->phone_->ReportDsp(true);
    session->let_go_ = std::jthread([self = session.get()](const std::stop_token& stop) {
        self->LetGoWhenInterrupted(stop);
    });
    return Begun::Of(std::move(session));
}

Session::Session(const SessionOptions& options, Terminal& terminal)
    : options_(options),
      terminal_(terminal),
      timeline_([&terminal](std::string_view text) { terminal.Print(text); }) {}

Session::~Session() = default;

// A call that a fault holds cannot be interrupted. Who has asked for the end and does not get it
// wants it let go, so that the run still comes to its report.
void Session::LetGoWhenInterrupted(const std::stop_token& stop) {
    constexpr std::chrono::milliseconds kLook{100};
    constexpr int kPatience = 10;  // Looks.
    std::mutex mutex;
    std::unique_lock lock(mutex);
    std::condition_variable_any stopped;
    const auto never = [] { return false; };
    for (int asked = 0; !stop.stop_requested(); stopped.wait_for(lock, stop, kLook, never)) {
        asked = IsInterrupted() ? asked + 1 : 0;
        if (asked != kPatience) continue;
        Say("interrupted, but a call goes on: all faults are lifted");
        phone_->board().faults().Clear();
    }
}

std::string Session::End(const std::string& verdict, const RunFiles& files) {
    let_go_ = {};
    ClearFaults();  // Nothing may be held by one when it is taken down.
    capture_.reset();
    phone_.reset();
    if (!files.AreWanted()) return {};
    timeline_.record().SetVerdict(verdict);
    progress_.Show("writing the run's files");
    std::string problem = WriteRunFiles(timeline_.record(), files);
    progress_.End();
    return problem;
}

// --- models ---

Session::Model* Session::FindModel(const std::string& name) {
    if (const auto found = models_.find(name); found != models_.end()) return &found->second;
    for (auto& [other, model] : models_) {
        if (std::to_string(model.handle) == name) return &model;
    }
    return nullptr;
}

Outcome Session::Returned(bool succeeded) {
    last_result_ = phone_->last_result();
    if (!succeeded) failed_result_ = last_result_;
    return {};
}

std::optional<int> Session::TakeFailedResult() {
    return std::exchange(failed_result_, std::nullopt);
}

Outcome Session::Load(const LoadRequest& request) {
    virtual_dsp::SoundModel model;
    model.engine =
            request.is_generic ? virtual_dsp::Engine::kAmbientMusic : virtual_dsp::Engine::kHotword;
    model.threshold = static_cast<float>(request.threshold);
    model.pcm_template = request.pattern.samples;
    const std::vector<uint8_t> bytes = virtual_dsp::BuildSoundModel(model, request.total_bytes);
    progress_.BeginModel(bytes.size());
    const auto handle =
            phone_->Load(request.is_generic ? SoundModelType::GENERIC : SoundModelType::KEYPHRASE,
                         bytes, request.name);
    progress_.End();
    if (handle) {
        models_[request.name] = {.handle = *handle,
                                 .is_generic = request.is_generic,
                                 .io_handle = 0,
                                 .pattern = request.pattern};
    }
    return Returned(handle.has_value());
}

Outcome Session::Call(const std::string& name, bool (Phone::*call)(int handle)) {
    int handle = 0;
    if (const Model* model = FindModel(name)) {
        handle = model->handle;
    } else if (const auto [end, problem] =
                       std::from_chars(name.data(), name.data() + name.size(), handle);
               problem != std::errc() || end != name.data() + name.size()) {
        return Outcome::Expected("the name of a model or a handle", "'" + name + "'");
    }
    return Returned((*phone_.*call)(handle));
}

Outcome Session::Unload(const std::string& name) {
    Outcome outcome = Call(name, &Phone::Unload);
    if (outcome.ok() && last_result_ == 0) {
        std::erase_if(models_, [&](const auto& entry) {
            return entry.first == name || std::to_string(entry.second.handle) == name;
        });
    }
    return outcome;
}

Outcome Session::Start(const std::string& name, const RecognitionConfig& config, int io_handle) {
    Model* const model = FindModel(name);
    if (model == nullptr) return Outcome::Expected("the name of a model", "'" + name + "'");
    const bool started = phone_->Start(model->handle, io_handle, config);
    if (started) model->io_handle = io_handle;
    return Returned(started);
}

// --- the room ---

Outcome Session::Play(const audio::Sound& recording) {
    playback_ = phone_->PlayRecording(recording);
    char text[80];
    (void)std::snprintf(text, sizeof(text), "playing %.1f s at %g times real time",
                        audio::Seconds(recording.frames()), options_.speed);
    Say(text);
    return {};
}

bool Session::WaitUntil(const std::function<bool()>& done, double seconds, bool exactly) {
    const virtual_dsp::Microphone& microphone = phone_->board().microphone();
    const uint64_t end = microphone.Position() + FramesOf(seconds);
    std::optional<steady_clock::time_point> deadline;
    bool is_done = false;
    while (!(is_done = done()) && !IsInterrupted()) {
        if (!deadline && microphone.Position() >= end) {
            deadline = steady_clock::now();
            if (!exactly) *deadline += kOnItsWay;
        }
        if (deadline && steady_clock::now() >= *deadline) break;
        if (playback_ != nullptr) progress_.ShowPlayback(*playback_);
        std::this_thread::sleep_for(kLookAgain);
    }
    progress_.End();
    return is_done;
}

Outcome Session::NotInTime(const std::string& what, const std::string& seen) const {
    if (IsInterrupted()) return {.kind = Outcome::Kind::kInterrupted, .text = {}};
    return Outcome::Expected(what, seen);
}

// --- events ---

std::optional<FrameworkEvent> Session::TakeEvent(std::optional<int> handle) {
    while (auto event = phone_->framework().Wait(steady_clock::time_point::min())) {
        events_.push_back(std::move(*event));
    }
    const auto found = std::ranges::find_if(events_, [&](const FrameworkEvent& event) {
        return !handle || event.handle == *handle;
    });
    if (found == events_.end()) return std::nullopt;
    last_event_ = *found;
    events_.erase(found);
    return last_event_;
}

std::string Session::DescribeEvents() {
    std::string text;
    for (const FrameworkEvent& event : events_) {
        text += (text.empty() ? "" : "; ") + event.ToString();
    }
    return text.empty() ? "no event" : text;
}

// --- captures ---

Outcome Session::StartCapture(const CaptureOptions& options, double seconds,
                              const std::string& file) {
    if (Outcome stopped = StopCapture(); !stopped.ok()) return stopped;
    std::filesystem::path path;
    if (!file.empty()) {
        path = std::filesystem::path(options_.output_folder) / file;
        // Now, and not after the capture.
        if (access(path.parent_path().c_str(), W_OK) != 0) {
            return Outcome::Failed("cannot write into the folder of " + path.string() + ": " +
                                   std::strerror(errno) + "; choose another one");
        }
    }
    auto opened = Capture::Open(*phone_, options);
    last_result_ = opened ? 0 : -EINVAL;
    if (!opened) {
        failed_result_ = last_result_;
        timeline_.Line(Lane::kCapture, opened.error);
        return {};
    }
    const bool is_ambient =
            !options.is_internal_force && std::ranges::any_of(models_, [&](const auto& entry) {
                return entry.second.io_handle == options.io_handle && entry.second.is_generic;
            });
    capture_ = std::make_unique<CaptureJob>(
            *phone_, std::move(*opened.value),
            seconds > 0 ? std::optional(FramesOf(seconds)) : std::nullopt, is_ambient,
            path.string());
    return {};
}

Outcome Session::StopCapture() {
    if (capture_ == nullptr) return {};
    const std::string problem = capture_->Stop();
    return problem.empty() ? Outcome{} : Outcome::Failed(problem);
}

// --- around the HAL ---

Outcome Session::RestartService() {
    Outcome stopped = StopCapture();
    capture_.reset();
    models_.clear();
    phone_->RestartService();
    return stopped;
}

Outcome Session::AddFault(const std::string& text) {
    std::string error;
    const auto script = virtual_dsp::ParseFaults("on " + text, &error);
    if (!script) return Outcome::Failed(error);
    last_fault_ = phone_->board().faults().Add(script->rules[0]);
    return {};
}

void Session::ClearFaults() {
    phone_->board().faults().Load({.seed = options_.seed, .rules = {}});
    last_fault_.reset();
}

void Session::Route(const std::string& usecase, const std::string& device) {
    if (device == "none") {
        routes_.erase(usecase);
    } else {
        routes_[usecase] = device;
    }
    RoutingGraph graph;
    for (const auto& [source, sink] : routes_) graph.edges.push_back({source, sink});
    phone_->Route(graph);
}

bool Session::HasLogged(const std::string& text) {
    std::lock_guard lock(log_lock_);
    return std::ranges::any_of(
            log_, [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

void Session::ForgetLog() {
    std::lock_guard lock(log_lock_);
    log_.clear();
}

}  // namespace sthal
