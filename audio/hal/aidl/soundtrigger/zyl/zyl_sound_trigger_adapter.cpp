// Commands: switches, model actions, queries and the download of a model.
#define LOG_TAG "Sthal::ZylSoundTriggerAdapter"

#include "audio/hal/aidl/soundtrigger/zyl/zyl_sound_trigger_adapter.h"

#include <android-base/logging.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_command.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {

using utils::File;
using utils::zyl::ZylCommandExecutor;

template <CommandId ID>
struct ZylSoundTriggerAdapter::SoundTriggerCommand : CommandBase {
    explicit SoundTriggerCommand(uint32_t value) : payload(MakeCommand<ValuePayload>(ID)) {
        payload.value = value;
        buffer = reinterpret_cast<char*>(&payload);
        id = ID;
        size = sizeof(payload);
    }

    ValuePayload payload;
};

template <CommandId ID>
struct ZylSoundTriggerAdapter::WriteModelCommand : CommandBase {
    explicit WriteModelCommand(uint32_t model_offset)
        : offset(model_offset), payload(MakeCommand<WriteModelPayload>(ID)) {
        payload.offset = model_offset;
        buffer = reinterpret_cast<char*>(&payload);
        id = ID;
        size = sizeof(payload);
    }

    uint32_t offset;
    WriteModelPayload payload;
};

ZylSoundTriggerAdapter::ZylSoundTriggerAdapter(
        std::unique_ptr<File> command_device,
        std::unique_ptr<ZylSoundTriggerTuningManager> tuning_manager)
    : executor_(std::make_unique<ZylCommandExecutor>(std::move(command_device))),
      tuning_manager_(std::move(tuning_manager)) {}

ZylSoundTriggerAdapter::~ZylSoundTriggerAdapter() = default;

// --- the exchange ---

int ZylSoundTriggerAdapter::Exchange(char* command, int size) {
    std::lock_guard lock(command_lock_);
    (void)executor_->Open();  // A device that could not be opened fails the command.
    const int status = executor_->Execute(command, size);
    executor_->Close();
    return status;
}

int ZylSoundTriggerAdapter::ProcessCommand(CommandBase* command) {
    return Exchange(command->buffer, static_cast<int>(command->size));
}

int ZylSoundTriggerAdapter::SendSwitch(CommandId id) {
    CommandHeader command = MakeHeader(id, sizeof(CommandHeader));
    return Exchange(&command);
}

// --- switches and queries ---

int ZylSoundTriggerAdapter::SetupEraserInDsp(bool enable) {
    return SendSwitch(enable ? CMD_AUDIO_INPUT_HOTWORD_ERASER_ENABLE
                             : CMD_AUDIO_INPUT_HOTWORD_ERASER_DISABLE);
}

int ZylSoundTriggerAdapter::SetupMicSwapInDsp(bool enable) {
    return SendSwitch(enable ? CMD_AUDIO_INPUT_MIC_SWAP_ENABLE : CMD_AUDIO_INPUT_MIC_SWAP_DISABLE);
}

int ZylSoundTriggerAdapter::SetupNeuralAecInDsp(bool enable) {
    return SendSwitch(enable ? CMD_AUDIO_INPUT_NEURAL_AEC_ENABLE
                             : CMD_AUDIO_INPUT_NEURAL_AEC_DISABLE);
}

int ZylSoundTriggerAdapter::SetupApProcessWithDock(bool enable) {
    auto command = MakeCommand<ApProcessPayload>(CMD_AUDIO_INPUT_SET_AP_PROCESS_WITH_DOCK);
    command.enabled = enable ? 1 : 0;
    return Exchange(&command);
}

int ZylSoundTriggerAdapter::SetupReferenceSource(bool enable) {
    auto command = MakeCommand<ValuePayload>(CMD_AUDIO_INPUT_SET_REFERENCE_SOURCE);
    command.value = enable ? kReferenceSourceDock : kReferenceSourceOff;
    return Exchange(&command);
}

int ZylSoundTriggerAdapter::InternalHotwordRecognition(unsigned int value) {
    auto command =
            MakeCommand<InternalRecognitionPayload>(CMD_AUDIO_INPUT_HOTWORD_INTERNAL_RECOGNITION);
    command.value = value;
    return Exchange(&command);
}

std::optional<LibraryArchitecture> ZylSoundTriggerAdapter::GetLibraryArchitecture() {
    auto query = MakeCommand<LibraryArchitecturePayload>(CMD_AUDIO_INPUT_GET_LIBRARY_ARCHITECTURE);
    const int status = Exchange(&query);
    if (status != 0) {
        LOG(ERROR) << "GetLibraryArchitecture: Error with: " << status;
        return std::nullopt;
    }
    const auto& text = query.architecture;
    return LibraryArchitecture{
            .library_version = query.library_version,
            .architecture = std::string(text.data(), strnlen(text.data(), text.size())),
    };
}

// --- model actions ---

int ZylSoundTriggerAdapter::StartDetectionInDsp(int engine_type) {
    return DoModelAction(engine_type, ActionType::kStart);
}

int ZylSoundTriggerAdapter::StopDetectionInDsp(int engine_type) {
    return DoModelAction(engine_type, ActionType::kStop);
}

int ZylSoundTriggerAdapter::UnloadSoundModelFromDsp(int engine_type) {
    return DoModelAction(engine_type, ActionType::kUnload);
}

int ZylSoundTriggerAdapter::TriggerForceRecognition(int engine_type) {
    return DoModelAction(engine_type, ActionType::kForceRecognition);
}

namespace {

// The commands of one engine.
struct EngineCommands {
    CommandId load;
    CommandId start;
    CommandId stop;
    CommandId unload;
    CommandId force;
};

// Every action but the four, numbers that name none included, forces a recognition; the break
// engine cannot be forced.
constexpr EngineCommands CommandsOf(int engine_type) {
    switch (static_cast<EngineType>(engine_type)) {
        case EngineType::Hotword:
            return {CMD_AUDIO_INPUT_HOTWORD_LOAD_MODEL, CMD_AUDIO_INPUT_HOTWORD_START,
                    CMD_AUDIO_INPUT_HOTWORD_STOP, CMD_AUDIO_INPUT_HOTWORD_UNLOAD_MODEL,
                    CMD_AUDIO_INPUT_HOTWORD_FORCE_RECOGNITION};
        case EngineType::AmbientMusic:
            return {CMD_AUDIO_INPUT_AMBIENT_MUSIC_LOAD_MODEL, CMD_AUDIO_INPUT_AMBIENT_MUSIC_START,
                    CMD_AUDIO_INPUT_AMBIENT_MUSIC_STOP, CMD_AUDIO_INPUT_AMBIENT_MUSIC_UNLOAD_MODEL,
                    CMD_AUDIO_INPUT_AMBIENT_MUSIC_FORCE_RECOGNITION};
        case EngineType::AmbientMusicBreak:
            return {CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_LOAD_MODEL,
                    CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_START,
                    CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_STOP,
                    CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_UNLOAD_MODEL, kInvalidCommandId};
        case EngineType::Unknown:
            break;
    }
    return {kInvalidCommandId, kInvalidCommandId, kInvalidCommandId, kInvalidCommandId,
            kInvalidCommandId};
}

}  // namespace

int ZylSoundTriggerAdapter::DoModelAction(int engine_type, ActionType action) {
    const EngineCommands commands = CommandsOf(engine_type);
    CommandId id = commands.force;
    if (action == ActionType::kLoad) id = commands.load;
    if (action == ActionType::kStart) id = commands.start;
    if (action == ActionType::kStop) id = commands.stop;
    if (action == ActionType::kUnload) id = commands.unload;
    if (id == kInvalidCommandId) {
        LOG(ERROR) << "DoModelAction: Invalid command with model type : " << engine_type;
        return -EINVAL;
    }
    return SendSwitch(id);
}

// --- download ---

int ZylSoundTriggerAdapter::LoadSoundModelToDsp(int engine_type, int size, const char* data) {
    const int status = WriteSoundModelData(engine_type, size, data);
    if (status != 0) return status;
    return DoModelAction(engine_type, ActionType::kLoad);
}

int ZylSoundTriggerAdapter::WriteSoundModelData(int engine_type, int size, const char* data) {
    std::lock_guard lock(model_data_lock_);
    return WritePieces(engine_type, size, data);
}

int ZylSoundTriggerAdapter::WritePieces(int engine_type, int size, const char* data) {
    if (size < 0) {
        LOG(ERROR) << "WriteSoundModelData: negative model size: " << size;
        return -EINVAL;
    }
    File device(kModelDataDevice, O_WRONLY);
    (void)device.Open(kOpenAttempts, kOpenDelayUs);  // An absent device fails the first write.
    int status = 0;
    for (int written = 0; written < size;) {
        const int chunk = std::min(size - written, kModelChunkBytes);
        // One write per piece: the device would take the rest after a short write for another
        // piece.
        const int result = device.Write(data + written, chunk);
        if (result != chunk) {
            LOG(ERROR) << "WriteSoundModelData: write model data failure: " << result;
            return -EINVAL;
        }
        const auto command =
                CreateWriteModelCommand(engine_type, static_cast<unsigned int>(written));
        if (command == nullptr || command->id == kInvalidCommandId) {
            LOG(ERROR) << "WriteSoundModelData: Create write command failure";
            return -EINVAL;
        }
        // Only the last status counts: the DSP refuses to load a model with a hole.
        status = ProcessCommand(command.get());
        written += chunk;
    }
    return status;
}

std::unique_ptr<ZylSoundTriggerAdapter::CommandBase>
ZylSoundTriggerAdapter::CreateWriteModelCommand(int engine_type, unsigned int offset) {
    switch (static_cast<EngineType>(engine_type)) {
        case EngineType::Hotword:
            return std::make_unique<WriteModelCommand<CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL>>(offset);
        case EngineType::AmbientMusic:
            return std::make_unique<WriteModelCommand<CMD_AUDIO_INPUT_AMBIENT_MUSIC_WRITE_MODEL>>(
                    offset);
        case EngineType::AmbientMusicBreak:
            return std::make_unique<
                    WriteModelCommand<CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_WRITE_MODEL>>(offset);
        case EngineType::Unknown:
            break;
    }
    LOG(ERROR) << "CreateWriteModelCommand: wrong model type: " << engine_type;
    return nullptr;
}

// --- tuning ---

int ZylSoundTriggerAdapter::SendTuningToDsp(int tuning_type) {
    const auto blocks = tuning_manager_->GetTuningData(tuning_type);
    if (blocks.empty()) {
        LOG(WARNING) << "SendTuningToDsp: Can't get tuning data for type "
                     << toString(static_cast<TuningType>(tuning_type));
        return 0;
    }
    for (const auto& block : blocks) {
        if (const int status = SendTuningBlock(block); status != 0) return status;
    }
    return 0;
}

// A block is a row of records: the parameter's id, its length in bytes, and its value, of which the
// first four bytes count.
int ZylSoundTriggerAdapter::SendTuningBlock(
        const ZylSoundTriggerTuningManager::TuningBlock& block) {
    struct RecordHeader {
        uint32_t id;
        uint32_t value_bytes;
        int32_t value;
    };
    constexpr uint32_t kValueOffset = 8;
    static_assert(offsetof(RecordHeader, value) == kValueOffset);

    for (uint32_t offset = 0; offset < block.size;) {
        const uint32_t left = block.size - offset;
        RecordHeader record;
        if (left < sizeof(record)) {
            LOG(ERROR) << "SendTuningToDsp: record cut off at byte " << offset << " of "
                       << block.size;
            return -EINVAL;
        }
        memcpy(&record, block.data + offset, sizeof(record));
        if (record.value_bytes < sizeof(record.value) || record.value_bytes > left - kValueOffset) {
            LOG(ERROR) << "SendTuningToDsp: record at byte " << offset << " of " << block.size
                       << " has a value of " << record.value_bytes << " bytes";
            return -EINVAL;
        }
        // No blank after the colon: log parsers know the line that way.
        LOG(INFO) << "SendTuningToDsp:param id: " << record.id << ", param value: " << record.value;
        const auto command = CreateTuningCommandById(static_cast<int>(record.id), record.value);
        if (command == nullptr) {
            LOG(WARNING) << "SendTuningToDsp: Unsupported param id: " << record.id;
            return -EINVAL;
        }
        if (const int status = ProcessCommand(command.get()); status != 0) return status;
        offset += kValueOffset + record.value_bytes;
    }
    return 0;
}

std::unique_ptr<ZylSoundTriggerAdapter::CommandBase>
ZylSoundTriggerAdapter::CreateTuningCommandById(int param_id, int value) {
    const auto wire_value = static_cast<uint32_t>(value);
    switch (param_id) {
        case CMD_AUDIO_INPUT_HOTWORD_SET_ERASER_PRE_GAIN:
            return std::make_unique<
                    SoundTriggerCommand<CMD_AUDIO_INPUT_HOTWORD_SET_ERASER_PRE_GAIN>>(wire_value);
        case CMD_AUDIO_INPUT_HOTWORD_SET_ERASER_POST_GAIN:
            return std::make_unique<
                    SoundTriggerCommand<CMD_AUDIO_INPUT_HOTWORD_SET_ERASER_POST_GAIN>>(wire_value);
        case CMD_AUDIO_INPUT_HOTWORD_SET_NON_ERASER_GAIN:
            return std::make_unique<
                    SoundTriggerCommand<CMD_AUDIO_INPUT_HOTWORD_SET_NON_ERASER_GAIN>>(wire_value);
        case CMD_AUDIO_INPUT_SET_CHRE_GAIN:
            return std::make_unique<SoundTriggerCommand<CMD_AUDIO_INPUT_SET_CHRE_GAIN>>(wire_value);
        case CMD_AUDIO_INPUT_HOTWORD_SET_CLEANER_POST_GAIN:
            return std::make_unique<
                    SoundTriggerCommand<CMD_AUDIO_INPUT_HOTWORD_SET_CLEANER_POST_GAIN>>(wire_value);
        case CMD_AUDIO_INPUT_SET_CHRE_SRC_AEC_TIMEOUT:
            return std::make_unique<SoundTriggerCommand<CMD_AUDIO_INPUT_SET_CHRE_SRC_AEC_TIMEOUT>>(
                    wire_value);
        case CMD_AUDIO_INPUT_SET_CHRE_SRC_PDM_GAIN:
            return std::make_unique<SoundTriggerCommand<CMD_AUDIO_INPUT_SET_CHRE_SRC_PDM_GAIN>>(
                    wire_value);
        case CMD_AUDIO_INPUT_SET_CHRE_SRC_AEC_GAIN:
            return std::make_unique<SoundTriggerCommand<CMD_AUDIO_INPUT_SET_CHRE_SRC_AEC_GAIN>>(
                    wire_value);
        default:
            return nullptr;
    }
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
