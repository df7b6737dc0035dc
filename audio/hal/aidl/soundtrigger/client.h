#pragma once

#include <aidl/android/hardware/soundtrigger3/ISoundTriggerHwCallback.h>
#include <aidl/android/media/soundtrigger/PhraseRecognitionEvent.h>
#include <aidl/android/media/soundtrigger/PhraseSoundModel.h>
#include <aidl/android/media/soundtrigger/RecognitionConfig.h>
#include <aidl/android/media/soundtrigger/RecognitionEvent.h>
#include <aidl/android/media/soundtrigger/SoundModel.h>
#include <aidl/android/media/soundtrigger/SoundModelType.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <variant>

#include "audio/hal/aidl/soundtrigger/runtime_state.h"
#include "audio/hal/aidl/soundtrigger/sound_trigger_adapter.h"

namespace vendor::quarno::brindlecove::audio::hal::utils::dumpsys {
struct DumpsysInfo;
}

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/**
 * A recognition event with all that its delivery needs. It owns what it holds, so it is delivered
 * without the HAL's lock, whatever becomes of the client that made it.
 */
class RecognitionCallback {
  public:
    using Event =
            std::variant<std::monostate, ::aidl::android::media::soundtrigger::RecognitionEvent,
                         ::aidl::android::media::soundtrigger::PhraseRecognitionEvent>;
    using Receiver = ::aidl::android::hardware::soundtrigger3::ISoundTriggerHwCallback;

    RecognitionCallback(int32_t handle, std::shared_ptr<Receiver> receiver, Event event);

    /** Calls the framework. Without an event or a receiver it only logs a WARNING. */
    void Execute() const;

  private:
    int32_t handle_;
    std::shared_ptr<Receiver> receiver_;
    Event event_;
};

/**
 * A model that the framework loaded, with the framework's callback and last configuration; or the
 * HAL's own client for a capture without a detection, which has no model.
 *
 * Owned by SoundTriggerHal; everything here runs under its lock. What the DSP is told of a model is
 * its runtime state's business; the client itself only forces a recognition, and reads audio and
 * the time stamp.
 */
class SoundTriggerHalClient {
  public:
    using SoundModel = ::aidl::android::media::soundtrigger::SoundModel;
    using SoundModelType = ::aidl::android::media::soundtrigger::SoundModelType;
    using PhraseSoundModel = ::aidl::android::media::soundtrigger::PhraseSoundModel;
    using RecognitionConfig = ::aidl::android::media::soundtrigger::RecognitionConfig;
    using RecognitionEvent = ::aidl::android::media::soundtrigger::RecognitionEvent;
    using PhraseRecognitionEvent = ::aidl::android::media::soundtrigger::PhraseRecognitionEvent;
    using ISoundTriggerHwCallback =
            ::aidl::android::hardware::soundtrigger3::ISoundTriggerHwCallback;

    /** A new client in the state ModelUnloaded. `adapter` must outlive it. */
    static std::unique_ptr<SoundTriggerHalClient> Create(int handle, SoundTriggerAdapter* adapter);

    SoundTriggerHalClient(int handle, std::unique_ptr<RuntimeStateBase> state,
                          SoundTriggerAdapter* adapter);
    virtual ~SoundTriggerHalClient();
    SoundTriggerHalClient(const SoundTriggerHalClient&) = delete;
    SoundTriggerHalClient& operator=(const SoundTriggerHalClient&) = delete;

    /**
     * Keeps the model's identity, callback and bytes, which one read takes from its descriptor.
     * Fewer bytes than announced will do: the DSP decides whether they are a model.
     *
     * Returns 0; -EINVAL for a type other than KEYPHRASE and GENERIC, for a dataSize below 1 or
     * beyond memory, and for a descriptor that cannot be read or has nothing to read for a second.
     */
    [[nodiscard]] int Initialize(const SoundModel& model,
                                 std::shared_ptr<ISoundTriggerHwCallback> callback);

    /** The same for the model part. An event's phrases come from the configuration instead. */
    [[nodiscard]] int Initialize(const PhraseSoundModel& model,
                                 std::shared_ptr<ISoundTriggerHwCallback> callback);

    /** False, with the type left as it was, for a number above the known ones. */
    bool set_engine_type(EngineType type);

    /** Called by the state that this destroys, which must not touch itself afterwards. */
    void ChangeStateTo(std::unique_ptr<RuntimeStateBase> state);

    // Requests to the runtime state. Each returns 0; or -EINVAL, with the state as it was, when the
    // state refuses or the DSP fails.
    [[nodiscard]] int RequestUnloadModel();
    [[nodiscard]] int RequestLoadModel();
    [[nodiscard]] int RequestStartDetecting();
    [[nodiscard]] int RequestStopDetecting();
    [[nodiscard]] int RequestCallbackProcessing();
    [[nodiscard]] int RequestStartBuffering();
    [[nodiscard]] int RequestInternalForceRecognition();

    /**
     * Has the DSP report a detection now. Returns 0, also while one is processed; -EINVAL in every
     * other state but StartDetecting; else the adapter's status.
     */
    [[nodiscard]] int TriggerForceRecognition();

    /** Back to ModelUnloaded: the DSP has lost its models and is told nothing. */
    void ResetRuntimeState();

    /** Makes the event that belongs to the model's type; none for a client without a model. */
    RecognitionCallback PrepareCallback(const std::string& payload) const;

    /** Makes the event and delivers it: for a caller that has no lock to release in between. */
    void ExecuteCallback(const std::string& payload) const;

    RecognitionEvent CreateRecognitionEvent(const std::string& payload) const;
    PhraseRecognitionEvent CreatePhraseRecognitionEvent(const std::string& payload) const;

    /**
     * Reads captured audio, in the state Buffering only; see SoundTriggerAdapter::ReadDspBuffer. A
     * failed read delivers silence. Blocks up to 128 ms, and 64 ms more after a failure.
     */
    [[nodiscard]] int ReadClientBuffer(char* buffer, unsigned int size, int channels);

    [[nodiscard]] int64_t ReadClientTimestamp();

    virtual void Dump(const utils::dumpsys::DumpsysInfo& info);

    RuntimeState state() const { return runtime_state_->state_; }
    const std::string& vendor_uuid() const { return vendor_uuid_; }
    int32_t model_size() const { return model_size_; }
    const char* model_data() const { return model_data_.get(); }

    // Written by the HAL alone, except the engine, which Initialize writes, too.
    int32_t handle_;
    int32_t io_handle_ = 0;  // The capture stream that the framework will read a detection from.
    EngineType engine_type_ = EngineType::Unknown;
    bool is_loaded_ = false;       // The framework has loaded this model, whatever the DSP holds.
    bool is_started_ = false;      // The framework has started recognition and not stopped it.
    bool is_aec_enabled_ = false;  // The eraser is on for this client.
    bool is_internal_force_active_ = false;  // Internal recognition runs on this client.
    bool is_internal_client_ = false;        // Made for that by the HAL, not by the framework.

  private:
    struct FreeDeleter {
        void operator()(char* memory) const { std::free(memory); }
    };

    SoundModelType model_type_ = SoundModelType::INVALID;
    int32_t model_size_ = 0;
    std::string uuid_;
    std::string vendor_uuid_;
    std::unique_ptr<char[], FreeDeleter> model_data_;
    std::shared_ptr<ISoundTriggerHwCallback> callback_;
    std::unique_ptr<RuntimeStateBase> runtime_state_;  // Never null.
    SoundTriggerAdapter* const adapter_;

  public:
    RecognitionConfig recognition_config_;  // Of the last start; written by the HAL.
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
