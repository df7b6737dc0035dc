#pragma once

#include <aidl/android/hardware/audio/common/SinkMetadata.h>
#include <aidl/android/hardware/audio/common/SourceMetadata.h>
#include <aidl/android/hardware/audio/core/VendorParameter.h>
#include <aidl/android/hardware/soundtrigger3/ISoundTriggerHwCallback.h>
#include <aidl/android/media/soundtrigger/PhraseSoundModel.h>
#include <aidl/android/media/soundtrigger/Properties.h>
#include <aidl/android/media/soundtrigger/RecognitionConfig.h>
#include <aidl/android/media/soundtrigger/SoundModel.h>
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
 * It owns the way to the DSP, one client per loaded model, and the control thread that reads the
 * DSP's detections and delivers them to the framework. What the framework asked for is remembered
 * in the clients, so that a DSP that crashes and comes back is put to work again without the
 * framework noticing.
 *
 *   built --Initialize()--> running --~SoundTriggerHal()--> gone
 *
 * Results are 0, or -EINVAL for every refusal, or what the DSP failed with, as it came from the
 * adapter. Nothing throws.
 *
 * Threads: all operations may be called from any thread, also from a framework callback, once
 * Initialize has returned. One mutex guards everything; operations hold it from entry to return,
 * a model's download included, except GetProperties, GetModelHandle, ReadBuffer, ReadTimestamp,
 * GetPrefix and GetParameter, which never wait for it, and StopRecognition and UnloadSoundModel,
 * which release it while they wait for an event. A framework callback is made from the control
 * thread without it.
 *
 * Time: what asks the DSP takes milliseconds, a download about one per 16 KiB. "Blocks up to" below
 * is how long answers are waited for in vain when the DSP is silent from the start of the call: 200
 * ms for one, 500 ms for all that follow each other closely (utils::zyl::ZylCommandExecutor), and
 * 200 ms more in each second of a download that takes longer. The next calls find that time used up
 * and only look whether an answer is there, until one comes or the DSP has been left alone for 100
 * ms. Beside that:
 *  - a call waits for the lock while another one has it, and while the control thread opens the
 *    notification device (up to 500 ms where it is missing);
 *  - a call that the driver of a device does not return from holds its caller, and mostly the lock,
 *    until the driver lets go. Nothing here can end it; a driver that ends all calls when its DSP
 *    is found to be down bounds it by how long that takes.
 */
class SOUND_TRIGGER_EXPORT SoundTriggerHal : public Dumpable,
                                             public PowerEventListener,
                                             public audio::router::RoutingGraphListener,
                                             public utils::soundcardstate::SoundCardStateListener,
                                             public StreamMetadataListener,
                                             public VendorParameterHandler {
  public:
    using Properties = ::aidl::android::media::soundtrigger::Properties;
    using SoundModel = ::aidl::android::media::soundtrigger::SoundModel;
    using PhraseSoundModel = ::aidl::android::media::soundtrigger::PhraseSoundModel;
    using RecognitionConfig = ::aidl::android::media::soundtrigger::RecognitionConfig;
    using ISoundTriggerHwCallback =
            ::aidl::android::hardware::soundtrigger3::ISoundTriggerHwCallback;
    using SourceMetadata = ::aidl::android::hardware::audio::common::SourceMetadata;
    using SinkMetadata = ::aidl::android::hardware::audio::common::SinkMetadata;
    using VendorParameter = ::aidl::android::hardware::audio::core::VendorParameter;
    using RoutingGraph = audio::router::RoutingGraph;
    using RoutingEdge = audio::router::RoutingEdge;
    using SoundCardState = utils::soundcardstate::SoundCardState;
    using DumpsysInfo = utils::dumpsys::DumpsysInfo;

    /** Touches no device and starts no thread. */
    explicit SoundTriggerHal(std::unique_ptr<SoundTriggerAdapter> adapter);

    /**
     * Ends the control thread, which it waits for, and closes the devices. The DSP is left as it
     * is. Not in a framework callback, which runs on that thread. No other call may be running or
     * come later, the sound card monitor's included: the registration with it is not undone here.
     */
    ~SoundTriggerHal() override;

    SoundTriggerHal(const SoundTriggerHal&) = delete;
    SoundTriggerHal& operator=(const SoundTriggerHal&) = delete;

    /**
     * Says whose reports of the DSP going offline and coming online to follow. Optional, before
     * Initialize; `monitor` must outlive this object. Without one, whoever owns the HAL calls
     * OnSoundCardStateChanged.
     */
    void SetSoundCardState(SoundCardState* monitor) { sound_card_state_ = monitor; }

    /**
     * Puts the DSP into a known state, starts the control thread and registers with the sound card
     * monitor. Once, before any other operation. A DSP that is still down at boot is no failure.
     * Blocks up to 500 ms.
     *
     * @return Without a monitor true. With one, whether the sound card is online now; false also
     *         when the monitor refuses the registration. The HAL works in every case: the DSP
     *         counts as offline until OnSoundCardStateChanged says otherwise.
     */
    bool Initialize();

    // --- models ---

    /**
     * Describes the implementation. Asks the DSP for its library version and architecture. Blocks
     * up to 200 ms, and as much for each command of another thread before it.
     *
     * @param properties  Filled on success, else left as it was.
     * @return 0, or -EINVAL when the DSP does not answer.
     */
    [[nodiscard]] int GetProperties(Properties* properties);

    /**
     * Loads a model into the DSP; while the DSP is offline, as soon as it is back. Blocks up to
     * 500 ms; where the model-data device is missing, it is waited for as long again.
     *
     * @param model     Its descriptor is read here and stays the caller's. A pipe or socket with
     *                  nothing in it is waited for, 1 s in all.
     * @param callback  Gets the model's recognition events. May be null: then they are dropped.
     * @param handle    Set on success only: the smallest free number from 1.
     * @return 0; -EINVAL when 3 models are loaded, when one with the same vendor uuid is, when the
     *         model is not one, when a running internal recognition cannot be ended, or when the
     *         DSP refuses it. A failed load leaves nothing behind.
     */
    [[nodiscard]] int LoadSoundModel(const SoundModel& model,
                                     std::shared_ptr<ISoundTriggerHwCallback> callback, int* handle)
            EXCLUDES(lock_);

    /** The same for the model part; the phrases are neither checked nor kept. */
    [[nodiscard]] int LoadPhraseSoundModel(const PhraseSoundModel& model,
                                           std::shared_ptr<ISoundTriggerHwCallback> callback,
                                           int* handle) EXCLUDES(lock_);

    [[nodiscard]] int LoadModel(const SoundModel& model,
                                std::shared_ptr<ISoundTriggerHwCallback> callback, int* handle)
            EXCLUDES(lock_);

    /**
     * Forgets a model. One that is started need not be stopped first. No event of it comes after a
     * successful return: one that is on its way is dropped or, if the framework is just being
     * called, waited for (up to 500 ms, unless called from that very callback).
     *
     * Blocks up to 500 ms for the DSP, and then for that event.
     *
     * @return 0; -EINVAL for an unknown handle, or when the DSP fails: then the model stays loaded
     *         and the call may be repeated.
     */
    [[nodiscard]] int UnloadSoundModel(int handle) EXCLUDES(lock_);

    /**
     * The model that captures on `io_handle`, or -EINVAL when no started one does. Never blocks.
     */
    [[nodiscard]] int GetModelHandle(int io_handle) const;

    // --- recognition ---

    /**
     * Starts recognition; while the DSP is offline, as soon as it is back. A second start before
     * the first detection changes the configuration and the io handle. Blocks up to 500 ms.
     *
     * @param device_handle  Ignored.
     * @param io_handle      What the capture stream of a detection will be opened on.
     * @return 0; -EINVAL for an unknown handle, or when the DSP or the model's state refuses: then
     *         nothing is remembered.
     */
    [[nodiscard]] int StartRecognition(int handle, int device_handle, int io_handle,
                                       const RecognitionConfig& config) EXCLUDES(lock_);

    /**
     * Stops recognition. Switches the echo canceller off for every hotword model, too. No event of
     * the model comes after a successful return: see UnloadSoundModel, also for how long it blocks.
     *
     * @return 0; -EINVAL for an unknown handle, for a model that is not started, or when the DSP
     *         fails: then the model stays started and the call may be repeated.
     */
    [[nodiscard]] int StopRecognition(int handle) EXCLUDES(lock_);

    /**
     * Has the DSP report a detection now; the event comes like any other. Blocks up to 200 ms.
     *
     * @return 0, also while the DSP is offline, when the request is dropped; -EINVAL for an unknown
     *         handle or one that is not detecting; else what the DSP failed with.
     */
    [[nodiscard]] int ForceRecognitionEvent(int handle) EXCLUDES(lock_);

    // --- captured audio ---

    /**
     * Runs the hotword engine without a detection, for a capture that starts now. Uses the
     * framework's hotword model where one is loaded (the one with the highest handle), else a
     * client of the HAL's own. Blocks up to 500 ms.
     *
     * @return 0; -EINVAL while the DSP is offline or a detection of a hotword model is being
     *         processed or captured. Where the model's state or the DSP refuses, the model used is
     *         dropped, even if it is the framework's.
     */
    [[nodiscard]] int InternalForceRecognition() EXCLUDES(lock_);

    /**
     * Ends that; a model borrowed from the framework detects again if the framework started it.
     * Blocks up to 500 ms.
     */
    [[nodiscard]] int StopInternalForceRecognition() EXCLUDES(lock_);

    /**
     * Binds a capture stream to the detection that it is to read. Each detection serves one stream.
     * Asks the DSP nothing.
     *
     * @param io_handle           Of the stream; not looked at for an internal forced one.
     * @param is_internal_forced  The stream belongs to InternalForceRecognition.
     * @return The engine type to read with, or -EINVAL when there is no such detection.
     */
    [[nodiscard]] int StartBufferingByIoHandle(int io_handle, bool is_internal_forced)
            EXCLUDES(lock_);

    /**
     * Reads captured audio, 16-bit at 16 kHz. Never waits for the HAL's lock, and allocates
     * nothing. The first read of a hotword also asks the DSP for the hotword's instant, one command
     * among those of the other operations.
     *
     * @param engine_type    From StartBufferingByIoHandle.
     * @param buffer         Room for at least 2048 bytes whatever `size` says: see
     *                       SoundTriggerAdapter::ReadDspBuffer.
     * @param size           Wanted, in bytes.
     * @param channel_count  1: the first microphone; any other: both, interleaved.
     * @return Bytes delivered: a DSP that fails delivers silence. -ENODEV while it is offline.
     *         Blocks until all of it is there, or until none has come for 128 ms, and 64 ms more
     *         after another failure; for the hotword's instant up to 200 ms, and as much for each
     *         command of another thread before it. A device that is missing costs 64 ms.
     */
    [[nodiscard]] int ReadBuffer(int engine_type, char* buffer, uint32_t size, int channel_count);

    /** See SoundTriggerAdapter::ReadDspTimestamp. Never blocks. */
    [[nodiscard]] int64_t ReadTimestamp(int engine_type);

    // --- the audio environment ---

    /**
     * The DSP has gone or is back. Being back puts into the DSP what the framework wants of it, but
     * for the eraser, which comes with the next change of the playback; it blocks up to 500 ms, and
     * where the model-data device is missing, each model waits 500 ms for it. Being gone asks the
     * DSP nothing.
     *
     * Repeated reports are not filtered: a second one that the DSP is back starts every detection
     * anew and so ends a capture that is being read.
     */
    void OnSoundCardStateChanged(bool online) override EXCLUDES(lock_);

    // Each of these blocks up to 500 ms, and asks the DSP nothing while it is offline.
    void OnDockChargerConnected(bool connected) override EXCLUDES(lock_);
    void OnSourceMetadataChanged(std::string_view usecase, const SourceMetadata& metadata) override
            EXCLUDES(lock_);
    void OnRoutingGraphChanged(const RoutingGraph& graph) override EXCLUDES(lock_);

    /** "vendor.vexor.st.", the same object on every call. */
    const std::string& GetPrefix() const override;

    /** No parameter can be read back. */
    std::optional<VendorParameter> GetParameter(const std::string& key) override;

    /**
     * Takes "vendor.vexor.st.wireless.charger.with.fan", a Boolean. Blocks up to 200 ms.
     *
     * @return Whether it was that and readable.
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

    using Clients = std::map<int32_t, std::unique_ptr<SoundTriggerHalClient>>;

    struct WaitSet;  // What the control thread waits for in one turn.

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
    bool IsLoadedAlready(const std::string& vendor_uuid) const REQUIRES(lock_);

    // Internal recognition.
    int StopInternalForce() REQUIRES(lock_);
    int UnloadInternalClient(SoundTriggerHalClient* client) REQUIRES(lock_);
    int ResumeBorrowedClient(SoundTriggerHalClient* client, int stop_result) REQUIRES(lock_);
    SoundTriggerHalClient* FindBufferingCandidate(int io_handle, bool is_internal_forced) const
            REQUIRES(lock_);

    // The DSP and the audio environment.
    int ResetDsp() REQUIRES(lock_);
    void ResetDspAtStart() NO_THREAD_SAFETY_ANALYSIS;
    int ResetModelInDsp(int engine_type) REQUIRES(lock_);
    void PrepareDspOnline() REQUIRES(lock_);
    void PrepareDspOffline() REQUIRES(lock_);
    void ProcessDockEvent(bool connected) REQUIRES(lock_);
    void ProcessStreamMetadata(std::string_view usecase, const SourceMetadata& metadata)
            REQUIRES(lock_);
    void ProcessMicSwapEvent(bool enabled) REQUIRES(lock_);
    bool ShouldEnableAec() const REQUIRES(lock_);
    void ProcessAecEvent(bool enable) REQUIRES(lock_);
    int32_t TuningTypeForDock() const REQUIRES(lock_);

    // The control thread.
    void SendControlMessage() REQUIRES(lock_);
    void ControlThreadLoop();
    bool OpenControlPipe() EXCLUDES(lock_);
    void CloseControlPipe() EXCLUDES(lock_);
    WaitSet PrepareWaitSet() EXCLUDES(lock_);
    void HandleReady(const WaitSet& ready) EXCLUDES(lock_);
    void DrainControlPipe() REQUIRES(lock_);
    SoundTriggerHalClient* ReadDetection(int* model_type, std::string* payload, int* result)
            REQUIRES(lock_);
    void DeliverRecognition(int32_t handle, const std::string& payload) EXCLUDES(lock_);
    std::optional<RecognitionCallback> ClaimCallback(int32_t handle, const std::string& payload)
            EXCLUDES(lock_);
    void ReleaseLockOnceMore() NO_THREAD_SAFETY_ANALYSIS;

    // Written under `lock_`; read without it on the capture path.
    std::atomic<bool> is_dsp_online_{false};
    const Properties properties_;
    Clients clients_ GUARDED_BY(lock_);
    std::thread control_thread_;  // Of the thread that initialises and destroys the HAL.
    std::atomic<bool> stop_control_thread_{false};
    std::mutex lock_;
    WakeUpPipe control_pipe_ GUARDED_BY(lock_);  // Opened and closed by the control thread.
    const std::unique_ptr<SoundTriggerAdapter> adapter_;
    SoundCardState* sound_card_state_ = nullptr;  // Set before Initialize, not changed later.
    bool mic_swap_enabled_ GUARDED_BY(lock_) = false;
    bool docked_ GUARDED_BY(lock_) = false;
    // Shown in the dump, where tools expect its line; nothing counts in it.
    int32_t active_usage_count_ GUARDED_BY(lock_) = 0;
    PlaybackUsecases playback_usecases_ GUARDED_BY(lock_);
    utils::wakelock::WakeLock wake_lock_ GUARDED_BY(lock_);

    // The DSP went down since the control thread last closed the notification device.
    bool is_notification_stale_ GUARDED_BY(lock_) = false;

    EventDelivery delivery_ GUARDED_BY(lock_);
    // Written under `lock_` whenever a client is started, stopped or removed; read without it.
    StartedIoHandles started_io_handles_;
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
