#pragma once

#include <aidl/android/hardware/audio/common/SinkMetadata.h>
#include <aidl/android/hardware/audio/core/VendorParameter.h>
#include <aidl/android/media/soundtrigger/Properties.h>
#include <android-base/thread_annotations.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "audio/hal/aidl/soundtrigger/client.h"
#include "audio/hal/aidl/soundtrigger/event_delivery.h"
#include "audio/hal/aidl/soundtrigger/export.h"
#include "audio/hal/aidl/soundtrigger/playback_usecases.h"
#include "audio/hal/aidl/soundtrigger/sound_trigger_adapter.h"
#include "audio/hal/aidl/soundtrigger/started_io_handles.h"
#include "audio/hal/aidl/soundtrigger/wake_up_pipe.h"
#include "audio/hal/audio/router/routing_graph.h"
#include "audio/hal/interfaces/dumpable.h"
#include "audio/hal/interfaces/power_event_listener.h"
#include "audio/hal/interfaces/stream_metadata_listener.h"
#include "audio/hal/interfaces/vendor_parameter_handler.h"
#include "audio/hal/utils/dumpsys/dumpsys.h"
#include "audio/hal/utils/soundcardstate/sound_card_state.h"
#include "audio/hal/utils/wakelock/wake_lock.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/**
 * The sound trigger HAL: the one object that the vendor audio service builds, initialises and
 * calls.
 *
 * It owns the interface to the DSP, one client per loaded model, and the control thread, which
 * reads the DSP's detections and delivers them to the framework. The clients remember what the
 * framework wants, so a DSP that restarts is put to work again without the framework noticing.
 *
 *   built --Initialize()--> running --~SoundTriggerHal()--> gone
 *
 * Results are 0, -EINVAL for a refusal, or what the adapter failed with. Nothing throws.
 *
 * Threads: once Initialize has returned, every operation may be called from any thread, also from a
 * framework callback. Operations hold the lock from entry to return. GetProperties, GetModelHandle,
 * ReadBuffer, ReadTimestamp, GetPrefix and GetParameter do not take it; StopRecognition and
 * UnloadSoundModel release it while they wait for an event. Framework callbacks run on the control
 * thread, without the lock.
 *
 * "Blocks up to" is for a DSP that does not answer; docs/architecture.md explains the numbers, and
 * what else a call may wait for.
 */
class SOUND_TRIGGER_EXPORT SoundTriggerHal : public Dumpable,
                                             public PowerEventListener,
                                             public audio::router::RoutingGraphListener,
                                             public utils::soundcardstate::SoundCardStateListener,
                                             public StreamMetadataListener,
                                             public VendorParameterHandler {
  public:
    using Properties = ::aidl::android::media::soundtrigger::Properties;
    using SoundModel = SoundTriggerHalClient::SoundModel;
    using PhraseSoundModel = SoundTriggerHalClient::PhraseSoundModel;
    using RecognitionConfig = SoundTriggerHalClient::RecognitionConfig;
    using ISoundTriggerHwCallback = SoundTriggerHalClient::ISoundTriggerHwCallback;
    using Callback = std::shared_ptr<ISoundTriggerHwCallback>;
    using SourceMetadata = PlaybackUsecases::SourceMetadata;
    using SinkMetadata = ::aidl::android::hardware::audio::common::SinkMetadata;
    using VendorParameter = ::aidl::android::hardware::audio::core::VendorParameter;
    using RoutingGraph = audio::router::RoutingGraph;
    using RoutingEdge = audio::router::RoutingEdge;
    using SoundCardState = utils::soundcardstate::SoundCardState;
    using DumpsysInfo = utils::dumpsys::DumpsysInfo;

    /** Touches no device and starts no thread. */
    explicit SoundTriggerHal(std::unique_ptr<SoundTriggerAdapter> adapter);

    /**
     * Waits for the control thread and closes the devices; the DSP keeps its state. Not in a
     * framework callback. No other call may run or come later, the monitor's reports included: the
     * registration with it is not undone here.
     */
    ~SoundTriggerHal() override;

    SoundTriggerHal(const SoundTriggerHal&) = delete;
    SoundTriggerHal& operator=(const SoundTriggerHal&) = delete;

    /**
     * Sets the sound card monitor to register with, before Initialize; it must outlive this object.
     * Without one, the HAL's owner calls OnSoundCardStateChanged.
     */
    void SetSoundCardState(SoundCardState* monitor) { sound_card_state_ = monitor; }

    /**
     * Resets the DSP, starts the control thread and registers with the monitor. Once, before any
     * other operation. Blocks up to 500 ms. Returns whether the sound card is online; true without
     * a monitor, false when the monitor refuses the registration. The HAL works in every case, also
     * when the reset fails, and the DSP is offline to it until OnSoundCardStateChanged.
     */
    bool Initialize();

    // --- models ---

    /**
     * Describes the implementation, with what the DSP says of its library. Blocks up to 200 ms, and
     * as long for each command of another thread before it. Returns 0, or -EINVAL when the DSP does
     * not answer; `properties` is then left alone.
     */
    [[nodiscard]] int GetProperties(Properties* properties);

    /**
     * Loads a model into the DSP, or notes it for when the DSP is back. Blocks up to 500 ms, and
     * for 500 ms more where the model-data device is missing.
     *
     * @param model     Its descriptor is read here and stays the caller's. An empty pipe or socket
     *                  is waited for, up to 1 s.
     * @param callback  Gets the model's events; null drops them.
     * @param handle    Set on success only, to the smallest free number from 1.
     * @return 0; -EINVAL when 3 models are loaded or one with this vendor uuid, when the model is
     *         malformed, when an internal recognition cannot be ended, or when the DSP refuses.
     *         After a failure nothing of the model is left.
     */
    [[nodiscard]] int LoadSoundModel(const SoundModel& model, Callback callback, int* handle)
            EXCLUDES(lock_);

    /** The same for the model part; the phrases are neither checked nor kept. */
    [[nodiscard]] int LoadPhraseSoundModel(const PhraseSoundModel& model, Callback callback,
                                           int* handle) EXCLUDES(lock_);

    [[nodiscard]] int LoadModel(const SoundModel& model, Callback callback, int* handle)
            EXCLUDES(lock_);

    /**
     * Unloads a model, also one that is started. No event of it comes after a successful return: a
     * pending one is dropped, and a framework callback that runs is waited for, up to 500 ms,
     * except by itself. Blocks up to 500 ms for the DSP before that.
     *
     * Returns 0; -EINVAL for an unknown handle, or when the DSP fails: the model then stays loaded,
     * and the call may be repeated.
     */
    [[nodiscard]] int UnloadSoundModel(int handle) EXCLUDES(lock_);

    /** The started model with this io handle; -EINVAL when there is none. Never blocks. */
    [[nodiscard]] int GetModelHandle(int io_handle) const;

    // --- recognition ---

    /**
     * Starts recognition, or notes it for when the DSP is back. A second start before the first
     * detection replaces the configuration and the io handle, on which the capture stream of a
     * detection will be opened. `device_handle` is ignored. Blocks up to 500 ms.
     *
     * Returns 0; -EINVAL for an unknown handle, or when the DSP or the model's state refuses:
     * nothing is then noted.
     */
    [[nodiscard]] int StartRecognition(int handle, int device_handle, int io_handle,
                                       const RecognitionConfig& config) EXCLUDES(lock_);

    /**
     * Stops recognition, and switches the echo canceller off for every hotword model. What
     * UnloadSoundModel says of events and of time holds here, too.
     *
     * Returns 0; -EINVAL for an unknown handle, for a model that is not started, or when the DSP
     * fails: the model then stays started, and the call may be repeated.
     */
    [[nodiscard]] int StopRecognition(int handle) EXCLUDES(lock_);

    /**
     * Has the DSP report a detection now; the event comes like any other. Blocks up to 200 ms.
     *
     * Returns 0, also while the DSP is offline, when the request is dropped; -EINVAL for an unknown
     * handle or a model that does not detect; else what the DSP failed with.
     */
    [[nodiscard]] int ForceRecognitionEvent(int handle) EXCLUDES(lock_);

    // --- captured audio ---

    /**
     * Starts internal recognition: the hotword engine runs without a detection, for a capture that
     * begins now. Borrows the framework's hotword model with the highest handle, else makes a
     * client of the HAL's own. Blocks up to 500 ms.
     *
     * Returns 0; -EINVAL while the DSP is offline or a hotword's detection is processed or
     * captured. When the DSP or the model's state refuses, the client is removed, even the
     * framework's.
     */
    [[nodiscard]] int InternalForceRecognition() EXCLUDES(lock_);

    /** Ends it; a borrowed model that is started detects again. Blocks up to 500 ms. */
    [[nodiscard]] int StopInternalForceRecognition() EXCLUDES(lock_);

    /**
     * Binds a capture stream to the detection of the started model with this io handle or, when it
     * is internal forced, to internal recognition. Each serves one stream. Asks the DSP nothing.
     * Returns the engine type to read with, or -EINVAL when there is none.
     */
    [[nodiscard]] int StartBufferingByIoHandle(int io_handle, bool is_internal_forced)
            EXCLUDES(lock_);

    /**
     * Reads captured audio, 16-bit at 16 kHz. Allocates nothing. The first read of a hotword also
     * asks the DSP for the hotword's instant.
     *
     * @param engine_type    From StartBufferingByIoHandle.
     * @param buffer         Room for 2048 bytes or more: see SoundTriggerAdapter::ReadDspBuffer.
     * @param size           Wanted, in bytes.
     * @param channel_count  1: the first microphone; any other: both, interleaved.
     * @return Bytes delivered: silence when the DSP fails. -ENODEV while it is offline. Blocks
     *         until all has come or nothing has for 128 ms; 64 ms more after another failure; and
     *         for the instant as GetProperties does.
     */
    [[nodiscard]] int ReadBuffer(int engine_type, char* buffer, uint32_t size, int channel_count);

    /** See SoundTriggerAdapter::ReadDspTimestamp. Never blocks. */
    [[nodiscard]] int64_t ReadTimestamp(int engine_type);

    // --- the audio environment ---

    /**
     * The DSP is back, or gone. Back, it gets all that the framework wants of it, except the
     * eraser, which comes with the next change of the playback; a repeated report restarts every
     * detection, which ends a capture that is being read. Blocks up to 500 ms, and for 500 ms more
     * per model where the model-data device is missing. A DSP that is gone is asked nothing.
     */
    void OnSoundCardStateChanged(bool online) override EXCLUDES(lock_);

    // Each blocks up to 500 ms, and asks the DSP nothing while it is offline.
    void OnDockChargerConnected(bool connected) override EXCLUDES(lock_);
    void OnSourceMetadataChanged(std::string_view usecase, const SourceMetadata& metadata) override
            EXCLUDES(lock_);
    void OnRoutingGraphChanged(const RoutingGraph& graph) override EXCLUDES(lock_);

    /** "vendor.vexor.st.", the same object on every call. */
    const std::string& GetPrefix() const override;

    /** No parameter can be read back. */
    std::optional<VendorParameter> GetParameter(const std::string& key) override;

    /**
     * Takes the Boolean "vendor.vexor.st.wireless.charger.with.fan"; false for any other parameter
     * and for a value that cannot be read. Blocks up to 200 ms.
     */
    bool SetParameter(const VendorParameter& parameter) override EXCLUDES(lock_);

    // Of no interest to the DSP.
    void OnBatteryLevelChanged(int) override {}
    void OnBatteryCycleCountChanged(int) override {}
    void OnWirelessChargerConnected(bool) override {}
    void OnSinkMetadataChanged(std::string_view, const SinkMetadata&) override {}
    void OnHighestPriorityEdgesChanged(const std::vector<RoutingEdge>&) override {}

    /** Writes four lines and, below them, every client's. */
    void Dump(const DumpsysInfo& info) override EXCLUDES(lock_);

  private:
    friend class SoundTriggerHalPeer;  // Lets tests reach what has no caller in the library.

    struct ControlTurn;  // What the control thread waits for in one turn, and what comes of it.

    // Clients.
    int32_t SmallestFreeHandle(int32_t from) const REQUIRES(lock_);
    SoundTriggerHalClient* FindClient(int32_t handle) const REQUIRES(lock_);
    SoundTriggerHalClient* FindRequested(const char* operation, int handle) const REQUIRES(lock_);
    SoundTriggerHalClient* ReclaimHotword(const char* operation, SoundTriggerHalClient* client)
            REQUIRES(lock_);
    SoundTriggerHalClient* AddClient(int32_t handle) REQUIRES(lock_);
    void RemoveClient(int32_t handle) REQUIRES(lock_);
    void PublishStartedClients() REQUIRES(lock_);
    bool HasActiveClient() const REQUIRES(lock_);
    bool IsLoaded(const std::string& vendor_uuid) const REQUIRES(lock_);

    // Internal recognition and capture.
    int StopInternalForce() REQUIRES(lock_);
    int UnloadInternalClient(SoundTriggerHalClient* client) REQUIRES(lock_);
    int ResumeBorrowedClient(SoundTriggerHalClient* client, int stop_result) REQUIRES(lock_);
    SoundTriggerHalClient* FindToBuffer(int io_handle, bool is_internal_forced) const
            REQUIRES(lock_);

    // The DSP and the audio environment.
    int ResetDsp() REQUIRES(lock_);
    void ResetDspAtStart() NO_THREAD_SAFETY_ANALYSIS;
    int ResetModelInDsp(int engine_type) REQUIRES(lock_);
    void PrepareDspOnline() REQUIRES(lock_);
    void PrepareDspOffline() REQUIRES(lock_);
    void ProcessDockEvent(bool connected) REQUIRES(lock_);
    void SendDockSettings() REQUIRES(lock_);
    void ProcessStreamMetadata(std::string_view usecase, const SourceMetadata& metadata)
            REQUIRES(lock_);
    void ProcessMicSwapEvent(bool enabled) REQUIRES(lock_);
    bool ShouldEnableAec() const REQUIRES(lock_);
    void ProcessAecEvent(bool enable) REQUIRES(lock_);

    // The control thread.
    void SendControlMessage() REQUIRES(lock_);
    void ControlThreadLoop();
    bool OpenControlPipe() EXCLUDES(lock_);
    void PrepareWaitSet(ControlTurn* turn) EXCLUDES(lock_);
    void HandleReady(ControlTurn* turn) EXCLUDES(lock_);
    void DrainControlPipe() REQUIRES(lock_);
    void ReadDetection(ControlTurn* turn) REQUIRES(lock_);
    void DeliverRecognition(const ControlTurn& turn) EXCLUDES(lock_);
    std::optional<RecognitionCallback> ClaimCallback(const ControlTurn& turn) EXCLUDES(lock_);
    void ReleaseLockOnceMore() NO_THREAD_SAFETY_ANALYSIS;

    std::atomic<bool> is_dsp_online_{false};  // Written under `lock_`, read without it.
    const Properties properties_;
    std::map<int32_t, std::unique_ptr<SoundTriggerHalClient>> clients_ GUARDED_BY(lock_);
    std::thread control_thread_;  // Of the thread that initialises and destroys the HAL.
    std::atomic<bool> stop_control_thread_{false};
    std::mutex lock_;
    WakeUpPipe control_pipe_ GUARDED_BY(lock_);  // Opened and closed by the control thread.
    const std::unique_ptr<SoundTriggerAdapter> adapter_;
    SoundCardState* sound_card_state_ = nullptr;  // Set before Initialize, not changed later.
    bool mic_swap_enabled_ GUARDED_BY(lock_) = false;
    bool docked_ GUARDED_BY(lock_) = false;
    int32_t active_usage_count_ GUARDED_BY(lock_) = 0;  // Always 0: tools expect it in the dump.
    PlaybackUsecases playback_usecases_ GUARDED_BY(lock_);
    utils::wakelock::WakeLock wake_lock_ GUARDED_BY(lock_);
    // The DSP went down since the control thread last closed the notification device.
    bool is_notification_stale_ GUARDED_BY(lock_) = false;
    EventDelivery delivery_ GUARDED_BY(lock_);
    StartedIoHandles started_io_handles_;  // Written under `lock_`, read without it.
};

/** Makes the HAL. */
class SOUND_TRIGGER_EXPORT SoundTriggerHalBuilder {
  public:
    /** Wired to the real DSP. Opens no device yet, but reads the tuning file. */
    static std::unique_ptr<SoundTriggerHal> BuildSoundTriggerHal();

    /** On a DSP interface of the caller's. */
    static std::unique_ptr<SoundTriggerHal> BuildSoundTriggerHal(
            std::unique_ptr<SoundTriggerAdapter> adapter);
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
