// Does a few things with the HAL, each between two calls of getppid(), so that whoever traces this
// program sees which system calls each of them makes. Run by syscalls_test.py.
#include <aidl/android/hardware/soundtrigger3/BnSoundTriggerHwCallback.h>
#include <aidl/android/media/soundtrigger/RecognitionConfig.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>
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
    ndk::ScopedAStatus modelUnloaded(int32_t) override { return ndk::ScopedAStatus::ok(); }
    ndk::ScopedAStatus phraseRecognitionCallback(
            int32_t, const ::aidl::android::media::soundtrigger::PhraseRecognitionEvent&) override {
        Note("detected");
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus recognitionCallback(
            int32_t, const ::aidl::android::media::soundtrigger::RecognitionEvent&) override {
        return ndk::ScopedAStatus::ok();
    }
};

int Load(soundtrigger::SoundTriggerHal& hal) {
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
    const auto callback = ndk::SharedRefBase::make<Callback>();
    Between("load", [&] { (void)hal.LoadSoundModel(model, callback, &handle); });
    return handle;
}

void Probe() {
    const auto created = virtual_dsp::Board::Create({});
    if (!created.ok()) return;
    virtual_dsp::Board* const board = created->get();
    const auto hal = soundtrigger::SoundTriggerHalBuilder::BuildSoundTriggerHal();
    (void)hal->Initialize();
    // Before it has its pipe, the control thread cannot be woken.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    hal->OnSoundCardStateChanged(true);
    const int handle = Load(*hal);
    const auto start = [&] {
        (void)hal->StartRecognition(handle, 0, kIoHandle, RecognitionConfig{});
    };
    Between("start", start);
    // What the control thread does of it is not of interest; it must not be in the middle of it.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    (void)hal->ForceRecognitionEvent(handle);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    Between("stop", [&] { (void)hal->StopRecognition(handle); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));

    (void)hal->InternalForceRecognition();
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
