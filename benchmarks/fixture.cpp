#include "benchmarks/fixture.h"

#include <aidl/android/media/soundtrigger/RecognitionConfig.h>
#include <android-base/logging.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "benchmarks/measure.h"
#include "benchmarks/rows.h"
#include "host/virtual_dsp/board/example_tuning.h"
#include "host/virtual_dsp/dsp/sample_pattern.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tests/support/model.h"

namespace bench {

namespace {

using ::aidl::android::media::soundtrigger::RecognitionConfig;
using ::aidl::android::media::soundtrigger::SoundModel;
using ::aidl::android::media::soundtrigger::SoundModelType;

std::atomic<uint64_t> log_lines{0};

void MustSucceed(bool ok, const char* what) {
    if (ok) return;
    (void)std::fprintf(stderr, "bench: %s failed\n", what);
    std::exit(1);
}

}  // namespace

void Arrival::Mark() {
    const int64_t now = NowNs();
    std::lock_guard lock(lock_);
    at_ns_ = now;
    arrived_.notify_all();
}

int64_t Arrival::Wait() {
    std::unique_lock lock(lock_);
    const bool came = arrived_.wait_for(lock, std::chrono::seconds(5), [&] { return at_ns_ != 0; });
    MustSucceed(came, "waiting for a detection");
    return std::exchange(at_ns_, 0);
}

Fixture::Fixture()
    : callback_(ndk::SharedRefBase::make<soundtrigger::RecordingCallback>(
              [this](int) { arrival_.Mark(); })) {
    android::base::SetLogger([](auto&&...) { log_lines.fetch_add(1, std::memory_order_relaxed); });
    auto board = virtual_dsp::Board::Create({});
    if (!board.ok()) {
        (void)std::fprintf(stderr, "bench: %s\n", board.error().c_str());
        std::exit(1);
    }
    board_ = std::move(*board);
    board_->SetTuningFile(virtual_dsp::ExampleTuningFile());
    hal_ = soundtrigger::SoundTriggerHalBuilder::BuildSoundTriggerHal();
    (void)hal_->Initialize();
    hal_->OnSoundCardStateChanged(true);
}

Fixture::~Fixture() {
    hal_.reset();
    board_.reset();
}

std::vector<uint8_t> Fixture::Model(virtual_dsp::Engine engine, size_t bytes) {
    // A template that is never heard: detections come by force.
    return virtual_dsp::BuildSoundModel(
            {engine, 0.9F,
             virtual_dsp::PatternChannel(uint64_t{1} << 40, virtual_dsp::kMinTemplateFrames, 0)},
            bytes);
}

SoundModel Fixture::Prepare(virtual_dsp::Engine engine, const std::vector<uint8_t>& model) {
    return soundtrigger::ModelOf(engine == virtual_dsp::Engine::kHotword ? SoundModelType::KEYPHRASE
                                                                         : SoundModelType::GENERIC,
                                 std::to_string(++models_), model);
}

void Fixture::Rewind(const SoundModel& model) {
    MustSucceed(lseek(model.data.get(), 0, SEEK_SET) == 0, "lseek");
}

int Fixture::Load(const SoundModel& model) {
    int handle = -1;
    MustSucceed(hal_->LoadSoundModel(model, callback_, &handle) == 0, "load");
    return handle;
}

void Fixture::Unload(int handle) {
    MustSucceed(hal_->UnloadSoundModel(handle) == 0, "unload");
}

void Fixture::Start(int handle, int io_handle) {
    MustSucceed(hal_->StartRecognition(handle, 0, io_handle, RecognitionConfig{}) == 0, "start");
}

void Fixture::Stop(int handle) {
    MustSucceed(hal_->StopRecognition(handle) == 0, "stop");
}

int Fixture::BeginCapture(virtual_dsp::Engine engine) {
    Start(Load(engine, Model(engine, 0)), kIoHandle);
    Settle();
    HearBulk();
    TellDsp(engine == virtual_dsp::Engine::kHotword
                    ? wire::CMD_AUDIO_INPUT_HOTWORD_FORCE_RECOGNITION
                    : wire::CMD_AUDIO_INPUT_AMBIENT_MUSIC_FORCE_RECOGNITION);
    (void)arrival_.Wait();
    const int engine_type = hal_->StartBufferingByIoHandle(kIoHandle, false);
    MustSucceed(engine_type > 0, "binding a capture");
    return engine_type;
}

void Fixture::HearBulk() {
    constexpr size_t kFrames = 1024;
    dsp().Hear(virtual_dsp::PatternFrames(heard_frames_, kFrames), virtual_dsp::BoottimeNow());
    heard_frames_ += kFrames;
}

void Fixture::TellDsp(uint16_t id) {
    const wire::CommandHeader header{0, 0, sizeof(wire::CommandHeader), id, 0};
    std::vector<uint8_t> reply;
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&header);
    MustSucceed(dsp().Execute({bytes, sizeof(header)}, &reply) == 0, "a command to the DSP");
}

void Fixture::SetLogging(bool on) {
    (void)android::base::SetMinimumLogSeverity(on ? android::base::INFO
                                                  : android::base::FATAL_WITHOUT_ABORT);
}

BareListener::BareListener(Arrival* arrival) : arrival_(arrival) {
    MustSucceed(pipe2(pipe_, O_NONBLOCK | O_CLOEXEC) == 0, "pipe");
    thread_ = std::thread(&BareListener::Run, this);
}

BareListener::~BareListener() {
    is_stopped_ = true;
    Watch(false);
    thread_.join();
    (void)close(pipe_[0]);
    (void)close(pipe_[1]);
}

void BareListener::Watch(bool on) {
    is_watching_ = on;
    const int32_t word = 0;
    MustSucceed(write(pipe_[1], &word, sizeof(word)) == sizeof(word), "waking the listener");
}

void BareListener::OpenOrCloseNode() {
    if (is_watching_ && node_ < 0) {
        node_ = open(wire::kNotificationDevice, O_RDWR | O_NONBLOCK | O_CLOEXEC);
        MustSucceed(node_ >= 0, "opening the notification node");
    } else if (!is_watching_ && node_ >= 0) {
        (void)close(node_);
        node_ = -1;
    }
}

void BareListener::Run() {
    (void)pthread_setname_np(pthread_self(), kThreadName);
    while (!is_stopped_) {
        OpenOrCloseNode();
        fd_set set;
        FD_ZERO(&set);
        FD_SET(pipe_[0], &set);
        if (node_ >= 0) FD_SET(node_, &set);
        if (select(std::max(pipe_[0], node_) + 1, &set, nullptr, nullptr, nullptr) <= 0) continue;
        int32_t word = 0;
        if (FD_ISSET(pipe_[0], &set)) {
            while (read(pipe_[0], &word, sizeof(word)) > 0) continue;
        }
        wire::NotificationRecord record;
        if (node_ >= 0 && FD_ISSET(node_, &set) &&
            read(node_, &record, sizeof(record)) == sizeof(record)) {
            arrival_->Mark();
        }
    }
    if (node_ >= 0) (void)close(node_);
}

namespace {

template <typename CpuSetOf>
void PlaceThreads(CpuSetOf cpu_set_of) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        const cpu_set_t where = cpu_set_of(name);
        (void)sched_setaffinity(std::stoi(task.path().filename()), sizeof(where), &where);
    }
}

}  // namespace

PinnedThreads::PinnedThreads() {
    CPU_ZERO(&before_);
    (void)sched_getaffinity(0, sizeof(before_), &before_);
    if (!CPU_ISSET(0, &before_) || !CPU_ISSET(1, &before_)) return;
    Settle();  // Threads that were just made get their names.
    PlaceThreads([](const std::string& name) {
        cpu_set_t where;
        CPU_ZERO(&where);
        CPU_SET(name == "SthalControl" || name == BareListener::kThreadName ? 1 : 0, &where);
        return where;
    });
}

PinnedThreads::~PinnedThreads() {
    PlaceThreads([this](const std::string&) { return before_; });
}

}  // namespace bench
