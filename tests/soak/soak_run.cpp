#include "tests/soak/soak_run.h"

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <thread>
#include <utility>

#include "host/virtual_dsp/dsp/sound_model.h"
#include "tests/support/hal_driver.h"
#include "tests/support/oracle.h"
#include "tests/support/recording_callback.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using ::framework::FrameworkMonitor;

using Kind = Step::Kind;

namespace {

constexpr std::chrono::microseconds kDrainPoll{20};
constexpr unsigned kReadBytes = 2048;

std::array<std::array<uint32_t, kStepModels>, 2> ModelCrcs(const SoakTarget& target) {
    std::array<std::array<uint32_t, kStepModels>, 2> crcs;
    for (size_t type = 0; type < crcs.size(); ++type) {
        for (size_t number = 0; number < crcs[type].size(); ++number) {
            crcs[type][number] = ::virtual_dsp::Crc32(
                    target.Model(static_cast<int>(type) + 1, static_cast<int>(number)));
        }
    }
    return crcs;
}

class SoakRun {
  public:
    SoakRun(const TargetFactory& make_target, SoakCounts* counts)
        : counts_(counts), target_(make_target()), oracle_(ModelCrcs(*target_)) {
        oracle_.RestartHal();
        BuildHal();
    }

    // What the HAL and the oracle do not agree about; empty when they do.
    std::string Take(const Step& step);

  private:
    void BuildHal();
    void RestartHal();
    std::optional<int> Apply(const Step& step);
    int Read(const Step& step);
    void Online(bool is_online) { (void)driver_->Apply({Kind::kOnline, is_online ? 1 : 0}); }
    void Recover();

    bool Drain();
    std::string Compare(std::optional<int> expected, std::optional<int> result);
    std::vector<EventView> TakeEvents();
    std::string CompareEvents();
    std::string CompareDsp();
    std::string CheckContract();

    SoakCounts* const counts_;
    const std::unique_ptr<SoakTarget> target_;
    Oracle oracle_;
    const std::shared_ptr<RecordingCallback> events_ =
            ::ndk::SharedRefBase::make<RecordingCallback>();
    std::unique_ptr<HalDriver> driver_;
    size_t violations_seen_ = 0;
};

void SoakRun::BuildHal() {
    driver_ = std::make_unique<HalDriver>(
            target_->BuildHal(),
            [this](int engine, int number) { return target_->Model(engine, number); }, events_);
    violations_seen_ = 0;
    (void)driver_->hal().Initialize();
}

void SoakRun::RestartHal() {
    driver_.reset();
    BuildHal();
    Online(target_->View().up);
}

std::string SoakRun::Take(const Step& step) {
    const std::optional<int> expected = oracle_.Apply(step);
    const std::optional<int> result = Apply(step);
    ++counts_->steps;
    if (oracle_.has_read() && !Drain()) return "a detection is not taken from the DSP";
    for (const std::string& difference : {Compare(expected, result), CompareEvents(), CompareDsp(),
                                          CheckContract(), target_->Complaint()}) {
        if (!difference.empty()) return difference;
    }
    return "";
}

std::optional<int> SoakRun::Apply(const Step& step) {
    switch (step.kind) {
        case Kind::kRead:
            return Read(step);
        case Kind::kDetect:
            target_->Detect(step.a);
            break;
        case Kind::kCrash:
            target_->Crash();
            if (step.a != 0) Online(false);
            break;
        case Kind::kRecover:
            Recover();
            break;
        case Kind::kFault:
            target_->Fail({static_cast<DspOp>(step.a), step.b}, step.c);
            break;
        case Kind::kReadFault:
            target_->FailNextRead(step.a);
            break;
        case Kind::kRestartHal:
            RestartHal();
            break;
        default:
            return driver_->Apply(step);
    }
    return std::nullopt;
}

// 1 for the DSP's audio, 0 for silence, or what was returned instead.
int SoakRun::Read(const Step& step) {
    target_->SetAudioFault(step.b != 0);
    std::array<char, kReadBytes> audio;
    audio.fill(2);
    const int result = driver_->hal().ReadBuffer(step.a, audio.data(), audio.size(), 1);
    if (result < 0) return result;
    (void)driver_->hal().ReadTimestamp(step.a);
    const bool is_one = audio[0] == 0 || audio[0] == 1;
    const bool is_whole = result == static_cast<int>(kReadBytes) &&
                          std::ranges::count(audio, audio[0]) == std::ssize(audio);
    return is_one && is_whole ? audio[0] : result + 2;
}

void SoakRun::Recover() {
    if (!target_->View().up) Online(false);
    target_->Boot();
    Online(true);
}

// Waits until the control thread has taken all records and delivered what came of them.
bool SoakRun::Drain() {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!driver_->IsIdle([this] { return !target_->HasRecord(); })) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        // No yield: on a busy machine that gives away much more than the control thread needs.
        std::this_thread::sleep_for(kDrainPoll);
    }
    return true;
}

// --- the comparison ---

std::string SoakRun::Compare(std::optional<int> expected, std::optional<int> result) {
    if (result != expected) {
        return "returned " + std::to_string(result.value_or(0)) + ", expected " +
               std::to_string(expected.value_or(0));
    }
    const auto clients = driver_->clients();
    if (clients != oracle_.clients()) {
        return "clients are: " + ToText(clients) + "\n  expected: " + ToText(oracle_.clients());
    }
    for (int io_handle = 0; io_handle < 4; ++io_handle) {
        const int handle = driver_->hal().GetModelHandle(io_handle);
        if (handle == oracle_.ModelHandleOf(io_handle)) continue;
        return "io handle " + std::to_string(io_handle) + " belongs to " + std::to_string(handle) +
               ", expected " + std::to_string(oracle_.ModelHandleOf(io_handle));
    }
    return "";
}

std::vector<EventView> SoakRun::TakeEvents() {
    std::vector<EventView> views;
    for (const RecordingCallback::Event& taken : events_->Take()) {
        const auto& extras = taken.event.phraseExtras;
        views.push_back({taken.handle, taken.is_phrase, taken.event.common.captureAvailable,
                         extras.empty() ? -1 : extras.front().id, taken.payload()});
    }
    return views;
}

std::string SoakRun::CompareEvents() {
    std::vector<EventView> expected = oracle_.TakeEvents();
    const std::vector<EventView> events = TakeEvents();
    counts_->events += events.size();
    if (!target_->has_plain_payloads() && events.size() == expected.size()) {
        for (size_t k = 0; k < events.size(); ++k) expected[k].payload = events[k].payload;
    }
    if (events == expected) return "";
    return "events are: " + ToText(events) + "\n  expected: " + ToText(expected);
}

std::string SoakRun::CompareDsp() {
    const DspView view = target_->View();
    if (view != oracle_.dsp().view()) {
        return "the DSP holds: " + ToText(view) + "\n  expected: " + ToText(oracle_.dsp().view());
    }
    const auto wanted = oracle_.Wanted();
    if (!wanted) return "";
    ++counts_->recoveries;
    if (view == *wanted) return "";
    return "after its recovery the DSP holds: " + ToText(view) + "\n  wanted: " + ToText(*wanted);
}

std::string SoakRun::CheckContract() {
    const auto violations = driver_->monitor().violations();
    while (violations_seen_ < violations.size()) {
        const FrameworkMonitor::Violation& violation = violations[violations_seen_++];
        if (violation.rule != FrameworkMonitor::Rule::kSecondEventAfterDspRestart) {
            return ToText(violation);
        }
        ++counts_->events_after_restart;
    }
    return "";
}

}  // namespace

std::optional<Finding> RunSteps(const std::vector<Step>& steps, const TargetFactory& make_target,
                                SoakCounts* counts) {
    SoakRun run(make_target, counts);
    for (size_t k = 0; k < steps.size(); ++k) {
        std::string difference = run.Take(steps[k]);
        if (!difference.empty()) return Finding{k, std::move(difference)};
    }
    return std::nullopt;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
