#pragma once

#include <aidl/android/hardware/soundtrigger3/BnSoundTriggerHw.h>
#include <android-base/thread_annotations.h>
#include <android/binder_status.h>

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "audio/hal/aidl/soundtrigger/sound_trigger_driver_operations.h"
#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "audio/hal/utils/soundcardstate/sound_card_state.h"

namespace vendor_service_example {

/**
 * The framework's sound trigger interface, as a vendor audio service serves it. Owns the HAL and
 * turns its results into binder statuses. Keeps what these results do not say: which handles belong
 * to the framework, and whether there is room for another model.
 *
 * Any number of binder threads may use it at a time. It holds no lock while it calls the framework
 * or the HAL, because both may call back into this object. The only exception is GetModelHandle,
 * which never blocks.
 */
class SoundTriggerService : public ::aidl::android::hardware::soundtrigger3::BnSoundTriggerHw {
  public:
    using SoundTriggerHal =
            ::vendor::quarno::brindlecove::audio::hal::soundtrigger::SoundTriggerHal;
    using CaptureStream =
            ::vendor::quarno::brindlecove::audio::hal::soundtrigger::SoundTriggerDriverOperations;
    using SoundCardState =
            ::vendor::quarno::brindlecove::audio::hal::utils::soundcardstate::SoundCardState;
    using Callback = ::aidl::android::hardware::soundtrigger3::ISoundTriggerHwCallback;
    using GlobalCallback = ::aidl::android::hardware::soundtrigger3::ISoundTriggerHwGlobalCallback;
    using ModelParameter = ::aidl::android::media::soundtrigger::ModelParameter;
    using ModelParameterRange = ::aidl::android::media::soundtrigger::ModelParameterRange;
    using PhraseSoundModel = ::aidl::android::media::soundtrigger::PhraseSoundModel;
    using Properties = ::aidl::android::media::soundtrigger::Properties;
    using RecognitionConfig = ::aidl::android::media::soundtrigger::RecognitionConfig;
    using SoundModel = ::aidl::android::media::soundtrigger::SoundModel;

    /**
     * Builds the HAL and starts it. Follows the reports of `monitor`, which must outlive this
     * object.
     */
    explicit SoundTriggerService(SoundCardState* monitor);

    /** Before this, all streams must be destroyed, and all users of hal() must have stopped. */
    ~SoundTriggerService() override;

    /**
     * For the rest of the audio service, which registers it for power, routing, stream metadata
     * and vendor parameters.
     */
    SoundTriggerHal& hal() { return *hal_; }

    /**
     * Opens a capture stream on the io handle that recognition was started with, or, with zero
     * latency, on what the DSP hears from now on.
     *
     * @return Null when there is no detection to capture, or none can be forced. The framework may
     *         then have lost its hotword model; the service tells it so.
     */
    std::unique_ptr<CaptureStream> OpenCapture(int io_handle, int channels, bool zero_latency)
            EXCLUDES(lock_);

    // --- ISoundTriggerHw ---
    ::ndk::ScopedAStatus getProperties(Properties* properties) override EXCLUDES(lock_);
    ::ndk::ScopedAStatus registerGlobalCallback(
            const std::shared_ptr<GlobalCallback>& callback) override EXCLUDES(lock_);
    ::ndk::ScopedAStatus loadSoundModel(const SoundModel& model,
                                        const std::shared_ptr<Callback>& callback,
                                        int32_t* handle) override;
    ::ndk::ScopedAStatus loadPhraseSoundModel(const PhraseSoundModel& model,
                                              const std::shared_ptr<Callback>& callback,
                                              int32_t* handle) override;
    ::ndk::ScopedAStatus unloadSoundModel(int32_t handle) override EXCLUDES(lock_);
    ::ndk::ScopedAStatus startRecognition(int32_t handle, int32_t device_handle, int32_t io_handle,
                                          const RecognitionConfig& config) override;
    ::ndk::ScopedAStatus stopRecognition(int32_t handle) override;
    ::ndk::ScopedAStatus forceRecognitionEvent(int32_t handle) override;

    // The DSP has no model parameters.
    ::ndk::ScopedAStatus queryParameter(int32_t handle, ModelParameter parameter,
                                        std::optional<ModelParameterRange>* range) override;
    ::ndk::ScopedAStatus getParameter(int32_t handle, ModelParameter parameter,
                                      int32_t* value) override;
    ::ndk::ScopedAStatus setParameter(int32_t handle, ModelParameter parameter,
                                      int32_t value) override;

    /** The arguments are the log tags by which Dumpsys selects. */
    binder_status_t dump(int fd, const char** args, uint32_t arg_count) override;

  private:
    // One of the framework's models, from the beginning of its load to the end of its unload.
    struct Model {
        std::string vendor_uuid;
        int32_t handle;
        bool is_started;                   // From the beginning of its start to that of its stop.
        std::optional<int32_t> io_handle;  // Set when its start has ended, while it is started.
        std::shared_ptr<Callback> callback;
    };
    // The handle of a model that the framework cannot name yet, or not any more. The HAL keeps 0
    // for itself.
    static constexpr int32_t kNoHandle = 0;

    ::ndk::ScopedAStatus Load(const SoundModel& model, const std::shared_ptr<Callback>& callback,
                              int32_t* handle, const std::function<int(int*)>& load_in_hal)
            EXCLUDES(lock_);
    void RemoveModel(std::list<Model>::iterator model) EXCLUDES(lock_);
    std::list<Model>::iterator Find(int32_t handle) REQUIRES(lock_);
    std::optional<Model> Snapshot(int32_t handle) EXCLUDES(lock_);
    void SetStarted(int32_t handle, bool is_started, std::optional<int32_t> io_handle)
            EXCLUDES(lock_);
    void SetIoHandle(int32_t handle, int32_t io_handle) EXCLUDES(lock_);
    void ForgetDroppedModels() EXCLUDES(lock_);

    SoundCardState* const monitor_;
    const std::unique_ptr<SoundTriggerHal> hal_;
    std::mutex lock_;
    std::list<Model> models_ GUARDED_BY(lock_);
    Properties properties_ GUARDED_BY(lock_);  // The DSP's last answer.
    std::shared_ptr<GlobalCallback> global_callback_ GUARDED_BY(lock_);
};

}  // namespace vendor_service_example
