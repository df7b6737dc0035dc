#include "tests/support/simple_dsp.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <thread>
#include <utility>

#include "host/virtual_dsp/dsp/sound_model.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using State = DspView::State;

std::string ToText(const DspView& view) {
    constexpr const char* kStates[] = {"idle", "armed without model", "detecting", "detected"};
    std::ostringstream text;
    text << "DSP " << (view.up ? "up" : "down");
    for (const auto& [name, engine] :
         {std::pair("hotword", view.hotword), std::pair("ambient", view.ambient)}) {
        text << ", " << name << ' ' << kStates[static_cast<int>(engine.state)] << " model "
             << std::hex << engine.model << std::dec;
    }
    text << ", eraser " << view.eraser << ", neural " << view.neural_aec << ", swap "
         << view.mic_swap << ", reference " << view.dock_reference << ", ap "
         << view.dock_ap_process << ", tuning " << view.tuning;
    return text.str();
}

// --- the DSP ---

namespace {

// These two are one command with an argument, so a fault hits whatever the argument is.
DspCall FaultKey(DspCall call) {
    const bool is_one_command = call.op == DspOp::kReference || call.op == DspOp::kApProcess;
    return is_one_command ? DspCall{call.op, 0} : call;
}

}  // namespace

void SimpleDsp::Fail(DspCall call, int times) {
    faults_[FaultKey(call)] += times;
}

int SimpleDsp::Answer(DspCall call, uint32_t model) {
    if (!view_.up) return -ENODEV;
    // The bytes come first, then the command; where that fails they stay for the next one.
    if (call.op == DspOp::kLoad && model != 0) staged_[call.argument] = model;
    if (const auto fault = faults_.find(FaultKey(call));
        fault != faults_.end() && fault->second > 0) {
        --fault->second;
        ++failures_;
        return -EIO;
    }
    if (Fault& fault = any_faults_[call.op]; fault.times > 0) {
        --fault.times;
        ++failures_;
        return fault.status;
    }
    return CarryOut(call);
}

int SimpleDsp::CarryOut(DspCall call) {
    const int argument = call.argument;
    const bool is_on = argument != 0;
    DspView::EngineView& engine = view_.engine(argument);
    switch (call.op) {
        case DspOp::kLoad:
            if (staged_[argument] == 0) return -EINVAL;
            engine.model = std::exchange(staged_[argument], 0);
            if (engine.state == State::kArmedWithoutModel) engine.state = State::kDetecting;
            return 0;
        case DspOp::kUnload:
            Stop(argument);
            engine.model = 0;
            staged_[argument] = 0;
            return 0;
        case DspOp::kStart:
            return Start(argument);
        case DspOp::kStop:
            Stop(argument);
            return 0;
        case DspOp::kForce:
            if (engine.state == State::kDetected && engine.model != 0) return 0;
            if (engine.state != State::kDetecting) return -EINVAL;
            Raise(argument);
            return 0;
        case DspOp::kInternal:
            if (view_.hotword.state == State::kIdle) return -EINVAL;
            DropRecords(1);
            Raise(1);
            return 0;
        case DspOp::kEraser:
            view_.eraser = is_on;
            return 0;
        case DspOp::kNeuralAec:
            view_.neural_aec = is_on;
            return 0;
        case DspOp::kMicSwap:
            view_.mic_swap = is_on;
            return 0;
        case DspOp::kReference:
            view_.dock_reference = is_on;
            return 0;
        case DspOp::kApProcess:
            view_.dock_ap_process = is_on;
            return 0;
        case DspOp::kTuning:
            view_.tuning = argument;
            return 0;
        case DspOp::kQuery:
        case DspOp::kRead:
            return 0;
    }
    return -EINVAL;
}

int SimpleDsp::Start(int engine) {
    DspView::EngineView& started = view_.engine(engine);
    if (started.state == State::kDetected) DropRecords(engine);
    if (started.model == 0 && engine != 1) return -EINVAL;
    ++starts_[engine];
    started.state = started.model != 0 ? State::kDetecting : State::kArmedWithoutModel;
    return 0;
}

void SimpleDsp::Stop(int engine) {
    DropRecords(engine);
    view_.engine(engine).state = State::kIdle;
}

void SimpleDsp::Detect(int engine) {
    if (view_.engine(engine).state == State::kDetecting) Raise(engine);
}

void SimpleDsp::Raise(int engine) {
    view_.engine(engine).state = State::kDetected;
    records_.push_back({engine, std::to_string(starts_[engine])});
}

void SimpleDsp::DropRecords(int engine) {
    std::erase_if(records_, [engine](const DspRecord& record) { return record.engine == engine; });
}

void SimpleDsp::Crash() {
    view_ = {};
    view_.up = false;
    records_.clear();
    staged_.clear();
}

std::optional<DspRecord> SimpleDsp::TakeRecord() {
    if (records_.empty()) return std::nullopt;
    DspRecord record = std::move(records_.front());
    records_.pop_front();
    return record;
}

// --- the adapter ---

class SimpleAdapter final : public SoundTriggerAdapter {
  public:
    explicit SimpleAdapter(SharedSimpleDsp* dsp) : dsp_(dsp) {}

    int LoadSoundModelToDsp(int engine, int size, const char* data) override {
        const auto* const bytes = reinterpret_cast<const uint8_t*>(data);
        return dsp_->Call({DspOp::kLoad, engine},
                          ::virtual_dsp::Crc32({bytes, static_cast<size_t>(size)}));
    }
    int UnloadSoundModelFromDsp(int engine) override { return Call(DspOp::kUnload, engine); }
    int StartDetectionInDsp(int engine) override { return Call(DspOp::kStart, engine); }
    int StopDetectionInDsp(int engine) override { return Call(DspOp::kStop, engine); }
    int TriggerForceRecognition(int engine) override { return Call(DspOp::kForce, engine); }
    int InternalHotwordRecognition(unsigned) override { return Call(DspOp::kInternal, 0); }
    int SetupEraserInDsp(bool on) override { return Call(DspOp::kEraser, on); }
    int SetupNeuralAecInDsp(bool on) override { return Call(DspOp::kNeuralAec, on); }
    int SetupMicSwapInDsp(bool on) override { return Call(DspOp::kMicSwap, on); }
    int SetupReferenceSource(bool on) override { return Call(DspOp::kReference, on); }
    int SetupApProcessWithDock(bool on) override { return Call(DspOp::kApProcess, on); }
    int SendTuningToDsp(int type) override { return Call(DspOp::kTuning, type); }

    std::optional<LibraryArchitecture> GetLibraryArchitecture() override {
        if (dsp_->With([](SimpleDsp& dsp) { return dsp.Answer({DspOp::kQuery, 0}); }) != 0) {
            return std::nullopt;
        }
        return LibraryArchitecture{.library_version = 7, .architecture = "arm"};
    }
    int GetNotificationFileDescriptor() override { return dsp_->event_fd_; }
    void ResetNotificationFileDescriptor() override {}
    int ReadDspNotification(int* engine, std::string& payload) override {
        return dsp_->ReadRecord(engine, &payload);
    }
    int ReadDspBuffer(int, char* buffer, unsigned size, int) override {
        return dsp_->ReadAudio(buffer, size);
    }
    int64_t ReadDspTimestamp(int engine) override { return engine == 1 ? -1 : 0; }

  private:
    int Call(DspOp op, int argument) { return dsp_->Call({op, argument}); }

    SharedSimpleDsp* const dsp_;
};

SharedSimpleDsp::SharedSimpleDsp() : event_fd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

SharedSimpleDsp::~SharedSimpleDsp() {
    close(event_fd_);
}

std::unique_ptr<SoundTriggerAdapter> SharedSimpleDsp::MakeAdapter() {
    return std::make_unique<SimpleAdapter>(this);
}

int SharedSimpleDsp::Call(DspCall call, uint32_t model) {
    int result;
    {
        std::lock_guard lock(lock_);
        if (calls_in_progress_++ != 0) ++overlaps_;
        const Finally sync{this};
        result = dsp_.Answer(call, model);
    }
    // A moment in which a call that comes beside this one is found out.
    if (is_slow_) std::this_thread::yield();
    std::lock_guard lock(lock_);
    --calls_in_progress_;
    return result;
}

int SharedSimpleDsp::ReadRecord(int* engine, std::string* payload) {
    std::lock_guard lock(lock_);
    const Finally sync{this};
    if (!dsp_.has_record()) return 0;  // As the driver: it was dropped since it could be seen.
    if (const int fault = std::exchange(read_fault_, 0); fault != 0) return fault;
    DspRecord record = *dsp_.TakeRecord();
    *engine = record.engine;
    *payload = std::move(record.payload);
    return 0;
}

int SharedSimpleDsp::ReadAudio(char* buffer, unsigned size) {
    std::lock_guard lock(lock_);
    if (audio_fault_ || !dsp_.view().up) return -ETIMEDOUT;
    std::memset(buffer, 1, size);
    return static_cast<int>(size);
}

void SharedSimpleDsp::FailNextRead(int status) {
    std::lock_guard lock(lock_);
    read_fault_ = status;
}

void SharedSimpleDsp::SetAudioFault(bool is_silent) {
    std::lock_guard lock(lock_);
    audio_fault_ = is_silent;
}

int SharedSimpleDsp::overlaps() const {
    std::lock_guard lock(lock_);
    return overlaps_;
}

void SharedSimpleDsp::UpdateReadiness() {
    if (is_readable_ == dsp_.has_record()) return;
    is_readable_ = dsp_.has_record();
    eventfd_t count;
    (void)(is_readable_ ? eventfd_write(event_fd_, 1) : eventfd_read(event_fd_, &count));
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
