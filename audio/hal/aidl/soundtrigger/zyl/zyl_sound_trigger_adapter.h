#pragma once

#include <android-base/thread_annotations.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "audio/hal/aidl/soundtrigger/sound_trigger_adapter.h"
#include "audio/hal/aidl/soundtrigger/zyl/zyl_sound_trigger_tuning_manager.h"
#include "audio/hal/aidl/soundtrigger/zyl/zyl_wire.h"
#include "audio/hal/utils/file/file.h"
#include "audio/hal/utils/zyl/zyl_command_executor.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {

/**
 * The DSP behind its device nodes; zyl_wire.h has what passes over them.
 *
 * Every command opens the control device, is answered, and closes it, with `command_lock_` held,
 * the innermost lock of the process. A download holds `model_data_lock_` as well, so that two
 * models do not mix; other commands go between its pieces. Reading audio takes neither, except for
 * one query per detection. No command is retried.
 */
class ZylSoundTriggerAdapter : public SoundTriggerAdapter {
  public:
    /** Opens nothing yet. */
    ZylSoundTriggerAdapter(std::unique_ptr<utils::File> command_device,
                           std::unique_ptr<ZylSoundTriggerTuningManager> tuning_manager);
    ~ZylSoundTriggerAdapter() override;

    std::optional<LibraryArchitecture> GetLibraryArchitecture() override;
    int LoadSoundModelToDsp(int engine_type, int size, const char* data) override
            EXCLUDES(model_data_lock_) EXCLUDES(command_lock_);
    int StartDetectionInDsp(int engine_type) override;
    int StopDetectionInDsp(int engine_type) override;
    int UnloadSoundModelFromDsp(int engine_type) override;
    int TriggerForceRecognition(int engine_type) override;
    int ReadDspBuffer(int engine_type, char* buffer, unsigned int size, int channels) override;
    int GetNotificationFileDescriptor() override;
    int ReadDspNotification(int* engine_type, std::string& payload) override;
    int SetupEraserInDsp(bool enable) override;
    int SetupApProcessWithDock(bool enable) override;
    int SetupMicSwapInDsp(bool enable) override;
    int SetupReferenceSource(bool enable) override;
    void ResetNotificationFileDescriptor() override;
    int SendTuningToDsp(int tuning_type) override;
    int InternalHotwordRecognition(unsigned int value) override;
    int SetupNeuralAecInDsp(bool enable) override;
    int64_t ReadDspTimestamp(int engine_type) override;

  private:
    friend class ZylSoundTriggerAdapterPeer;  // For tests of what the interface cannot reach.

    // While the DSP restarts, its nodes are missing for some tenths of a second.
    static constexpr int kOpenAttempts = 10;
    static constexpr int kOpenDelayUs = 50'000;

    enum class ActionType : int {
        kLoad = 1,
        kStart = 2,
        kStop = 3,
        kUnload = 4,
        kForceRecognition = 5,
    };

    // A command that is passed around before it is sent; a derived class owns its bytes.
    struct CommandBase {
        virtual ~CommandBase() = default;

        char* buffer = nullptr;
        uint32_t id = kInvalidCommandId;
        uint32_t size = 0;
    };
    // A tuning parameter.
    template <CommandId ID>
    struct SoundTriggerCommand;
    // Says where the piece of a model belongs that has just been written.
    template <CommandId ID>
    struct WriteModelCommand;

    // Commands.
    int ProcessCommand(CommandBase* command) EXCLUDES(command_lock_);
    int Exchange(char* command, int size) EXCLUDES(command_lock_);
    template <typename Payload>
    int Exchange(Payload* command) {
        return Exchange(reinterpret_cast<char*>(command), sizeof(Payload));
    }
    int SendSwitch(CommandId id);
    int DoModelAction(int engine_type, ActionType action);

    // Models.
    std::unique_ptr<CommandBase> CreateWriteModelCommand(int engine_type, unsigned int offset);
    int WriteSoundModelData(int engine_type, int size, const char* data) EXCLUDES(model_data_lock_)
            EXCLUDES(command_lock_);
    int WritePieces(int engine_type, int size, const char* data) REQUIRES(model_data_lock_)
            EXCLUDES(command_lock_);

    // Audio.
    int ReadHotwordBuffer(char* buffer, unsigned int size, int channels);
    int ReadAmbientBuffer(char* buffer, unsigned int size);
    void UpdateHotwordTimestamp();
    int64_t ReadHotwordTimestampFromDsp() EXCLUDES(command_lock_);
    bool ReadTimestampOffset(int64_t& offset);

    // Tuning.
    std::unique_ptr<CommandBase> CreateTuningCommandById(int param_id, int value);
    int SendTuningBlock(const ZylSoundTriggerTuningManager::TuningBlock& block);

    std::mutex command_lock_ ACQUIRED_AFTER(model_data_lock_);
    std::mutex model_data_lock_;
    const std::unique_ptr<utils::zyl::ZylCommandExecutor> executor_ PT_GUARDED_BY(command_lock_);
    std::unique_ptr<utils::File> notification_file_;  // The control thread's.
    const std::unique_ptr<ZylSoundTriggerTuningManager> tuning_manager_;
    // Shared by the control thread and the streams' threads.
    std::atomic<int64_t> hotword_timestamp_ns_{-1};
    std::atomic<bool> hotword_timestamp_read_{false};
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
