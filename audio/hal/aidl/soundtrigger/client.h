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
 * A recognition event on its way to the framework, with all that its delivery needs. It owns what
 * it holds, so it can be delivered without the HAL's lock while the client that made it is being
 * changed or destroyed.
 */
class RecognitionCallback {
  public:
    using Event =
            std::variant<std::monostate, ::aidl::android::media::soundtrigger::RecognitionEvent,
                         ::aidl::android::media::soundtrigger::PhraseRecognitionEvent>;
    using Receiver = ::aidl::android::hardware::soundtrigger3::ISoundTriggerHwCallback;

    RecognitionCallback(int32_t handle, std::shared_ptr<Receiver> receiver, Event event);

    /** Calls the framework; nothing to call it with, or nobody to call, is logged as a WARNING. */
    void Execute() const;

  private:
    int32_t handle_;
    std::shared_ptr<Receiver> receiver_;
    Event event_;
};

/**
 * One sound model: its bytes and identity, the framework's callback, what the framework last asked
 * for, and what the DSP is doing for it. Either a model that the framework loaded, or the client
 * that the HAL makes for a capture without a detection, which has no model.
 *
 * Owned by SoundTriggerHal, under whose lock everything here runs. A client never speaks to the DSP
 * by itself except to force a recognition and to read audio and its time stamp: all else is its
 * runtime state's.
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
     * Keeps the model: its identity, its callback and its bytes, which are read from the model's
     * descriptor in one go. Fewer bytes than announced are accepted as they stand; the DSP decides
     * whether they are a model.
     *
     * @return 0, or -EINVAL for a type other than KEYPHRASE and GENERIC, for a dataSize below 1 or
     *         beyond what memory there is, and for a descriptor that cannot be read or has nothing
     *         to read within a second.
     */
    [[nodiscard]] int Initialize(const SoundModel& model,
                                 std::shared_ptr<ISoundTriggerHwCallback> callback);

    /**
     * The same for the model part. The phrases are not kept: the phrases of an event come from the
     * configuration that recognition was started with.
     */
    [[nodiscard]] int Initialize(const PhraseSoundModel& model,
                                 std::shared_ptr<ISoundTriggerHwCallback> callback);

    /** False, with the type left as it was, for a number above the known ones. */
    bool set_engine_type(EngineType type);

    /**
     * Installs the state that follows. Called by the state that it replaces and destroys, which
     * must not touch itself afterwards.
     */
    void ChangeStateTo(std::unique_ptr<RuntimeStateBase> state);

    // What the HAL asks of the runtime state: 0, or -EINVAL when the state forbids it or the DSP
    // failed; then the state is as it was. To stop detecting means to go back to the loaded state.
    [[nodiscard]] int RequestUnloadModel();
    [[nodiscard]] int RequestLoadModel();
    [[nodiscard]] int RequestStartDetecting();
    [[nodiscard]] int RequestStopDetecting();
    [[nodiscard]] int RequestCallbackProcessing();
    [[nodiscard]] int RequestStartBuffering();
    [[nodiscard]] int RequestInternalForceRecognition();

    /**
     * Has the DSP report a detection now.
     *
     * @return 0, also when a detection is already being processed; -EINVAL when nothing is being
     *         detected; else the adapter's status. The runtime state stays.
     */
    [[nodiscard]] int TriggerForceRecognition();

    /** Back to ModelUnloaded without a word to the DSP, which has lost its models. */
    void ResetRuntimeState();

    /**
     * Makes the event of a detection: a phrase event for a keyphrase model, a generic one for a
     * generic model, none for a client without a model.
     */
    RecognitionCallback PrepareCallback(const std::string& payload) const;

    /**
     * Makes the event and delivers it in one step. The HAL prepares under its lock and delivers
     * without it; this is for a caller that has no lock to release.
     */
    void ExecuteCallback(const std::string& payload) const;

    RecognitionEvent CreateRecognitionEvent(const std::string& payload) const;
    PhraseRecognitionEvent CreatePhraseRecognitionEvent(const std::string& payload) const;

    /**
     * Reads captured audio while in the state Buffering; see SoundTriggerAdapter::ReadDspBuffer for
     * the arguments. A failed read is delivered as silence. Blocks for up to 128 ms, and 64 ms more
     * after a failure.
     */
    [[nodiscard]] int ReadClientBuffer(char* buffer, unsigned int size, int channels);

    [[nodiscard]] int64_t ReadClientTimestamp();

    virtual void Dump(const utils::dumpsys::DumpsysInfo& info);

    RuntimeState state() const { return runtime_state_->state_; }
    const std::string& vendor_uuid() const { return vendor_uuid_; }
    int32_t model_size() const { return model_size_; }
    const char* model_data() const { return model_data_.get(); }

    // The HAL's notes about this client, which the HAL alone writes (the engine: Initialize, too).
    int32_t handle_;
    int32_t io_handle_ = 0;  // The capture stream that the framework will read a detection from.
    EngineType engine_type_ = EngineType::Unknown;
    bool is_loaded_ = false;       // The framework has loaded this model, whatever the DSP holds.
    bool is_started_ = false;      // The framework has started recognition and not stopped it.
    bool is_aec_enabled_ = false;  // The eraser is on for this client.
    bool is_internal_force_active_ = false;  // The HAL runs the engine for a capture of its own.
    bool is_internal_client_ = false;        // Made by the HAL for that, not by the framework.

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
    RecognitionConfig
            recognition_config_;  // Of the last start. The HAL's to write, as those above.
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
