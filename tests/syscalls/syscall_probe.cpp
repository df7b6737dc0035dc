// Does a few things with the HAL, each between two calls of getppid(), so that whoever traces this
// program sees which system calls each of them makes. Run by syscalls_test.py.
#include <aidl/android/hardware/soundtrigger3/BnSoundTriggerHwCallback.h>
#include <aidl/android/media/soundtrigger/RecognitionConfig.h>
#include <android-base/logging.h>
#include <sys/mman.h>
#include <unistd.h>

#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_driver_operations.h"
#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "host/virtual_dsp/board/board.h"
#include "host/virtual_dsp/board/enter_board.h"
#include "host/virtual_dsp/dsp/sample_pattern.h"
#include "host/virtual_dsp/dsp/sound_model.h"

namespace {

namespace soundtrigger = ::vendor::quarno::brindlecove::audio::hal::soundtrigger;
using ::aidl::android::media::soundtrigger::RecognitionConfig;
using ::aidl::android::media::soundtrigger::SoundModel;
using ::aidl::android::media::soundtrigger::SoundModelType;

constexpr int kIoHandle = 13;
constexpr unsigned int kBulkBytes = 4096;
constexpr size_t kModelBytes = 20000;  // Two pieces.

// Goes into the trace as the text of a write() to nowhere.
void Note(const std::string& name) {
    (void)!write(-1, name.data(), name.size());
}

void Between(const std::string& name, const std::function<void()>& work) {
    Note(name);
    (void)getppid();
    work();
    (void)getppid();
}

class Callback : public ::aidl::android::hardware::soundtrigger3::BnSoundTriggerHwCallback {
  public:
    explicit Callback(std::promise<void>* detected) : detected_(detected) {}

    ndk::ScopedAStatus modelUnloaded(int32_t) override { return ndk::ScopedAStatus::ok(); }
    ndk::ScopedAStatus phraseRecognitionCallback(
            int32_t, const ::aidl::android::media::soundtrigger::PhraseRecognitionEvent&) override {
        Note("detected");
        detected_->set_value();
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus recognitionCallback(
            int32_t, const ::aidl::android::media::soundtrigger::RecognitionEvent&) override {
        return ndk::ScopedAStatus::ok();
    }

  private:
    std::promise<void>* const detected_;
};

// The HAL's log, which is written nowhere.
class HalLog {
  public:
    static void Hear(android::base::LogId, android::base::LogSeverity, const char*, const char*,
                     unsigned, const char* text) {
        std::lock_guard lock(lock_);
        lines_.emplace_back(text);
        grown_.notify_all();
    }

    // Waits for a line with this text, after the one last found.
    static void Await(const char* text) {
        std::unique_lock lock(lock_);
        grown_.wait(lock, [text] { return Find(text); });
    }
    // Whether there is one already.
    static bool Has(const char* text) {
        std::lock_guard lock(lock_);
        return Find(text);
    }

  private:
    // Drops what it has passed, if it finds one.
    static bool Find(const char* text) {
        for (auto line = lines_.begin(); line != lines_.end(); ++line) {
            if (line->find(text) == std::string::npos) continue;
            lines_.erase(lines_.begin(), line + 1);
            return true;
        }
        return false;
    }

    static inline std::mutex lock_;
    static inline std::condition_variable grown_;
    static inline std::vector<std::string> lines_;
};

// What the control thread makes of a request is not of interest; it must not be in the middle of
// it. These are its last words before it waits again.
constexpr char kUpdated[] = "get update command";
constexpr char kRecordRead[] = "read trigger event with model type";

int Load(soundtrigger::SoundTriggerHal& hal, std::promise<void>* detected) {
    const std::vector<uint8_t> bytes = virtual_dsp::BuildSoundModel(
            {virtual_dsp::Engine::kHotword, 0.9F, virtual_dsp::PatternChannel(1 << 30, 1600, 0)},
            kModelBytes);
    SoundModel model;
    model.type = SoundModelType::KEYPHRASE;
    model.vendorUuid = "probe";
    model.dataSize = static_cast<int32_t>(bytes.size());
    model.data.set(memfd_create("model", MFD_CLOEXEC));
    (void)!pwrite(model.data.get(), bytes.data(), bytes.size(), 0);
    int handle = -1;
    const auto callback = ndk::SharedRefBase::make<Callback>(detected);
    Between("load", [&] { (void)hal.LoadSoundModel(model, callback, &handle); });
    return handle;
}

void Probe() {
    android::base::SetLogger(HalLog::Hear);
    const auto created = virtual_dsp::Board::Create({});
    if (!created.ok()) return;
    virtual_dsp::Board* const board = created->get();
    const auto hal = soundtrigger::SoundTriggerHalBuilder::BuildSoundTriggerHal();
    (void)hal->Initialize();
    do {
        hal->OnSoundCardStateChanged(true);
        // Before it has its pipe, the control thread cannot be woken.
    } while (HalLog::Has("pipe reader doesn't exist"));
    HalLog::Await(kUpdated);
    std::promise<void> detected;
    const int handle = Load(*hal, &detected);
    const auto start = [&] {
        (void)hal->StartRecognition(handle, 0, kIoHandle, RecognitionConfig{});
    };
    Between("start", start);
    HalLog::Await(kUpdated);
    (void)hal->ForceRecognitionEvent(handle);
    detected.get_future().wait();
    Between("stop", [&] { (void)hal->StopRecognition(handle); });
    HalLog::Await(kUpdated);

    (void)hal->InternalForceRecognition();
    HalLog::Await(kRecordRead);
    (void)hal->StartBufferingByIoHandle(kIoHandle, true);
    std::vector<char> buffer(kBulkBytes);
    for (const char* const name : {"first-read", "read"}) {
        board->dsp().Hear(virtual_dsp::PatternFrames(0, 1024), virtual_dsp::BoottimeNow());
        Between(name, [&] { (void)hal->ReadBuffer(1, buffer.data(), kBulkBytes, 2); });
    }
    Between("timestamp", [&] { (void)hal->ReadTimestamp(1); });
    Between("model-handle", [&] { (void)hal->GetModelHandle(kIoHandle); });
}

}  // namespace

int main(int argc, char** argv) {
    if (const auto status = virtual_dsp::EnterBoard(argc, argv)) return *status;
    Probe();
    return 0;
}
