#include "host/virtual_dsp/dsp/command_table.h"

#include <algorithm>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_wire.h"

namespace virtual_dsp {
namespace {

using namespace ::vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl;

constexpr uint16_t kPlain = sizeof(CommandHeader);
constexpr uint16_t kValue = sizeof(ValuePayload);
constexpr auto kHotword = Engine::kHotword;
constexpr auto kMusic = Engine::kAmbientMusic;
constexpr auto kBreak = Engine::kAmbientMusicBreak;

// clang-format off
constexpr CommandInfo kCommands[] = {
    {CMD_AUDIO_INPUT_HOTWORD_ERASER_ENABLE, kPlain, Action::kEraserOn, kHotword, "eraser on"},
    {CMD_AUDIO_INPUT_HOTWORD_ERASER_DISABLE, kPlain, Action::kEraserOff, kHotword, "eraser off"},
    {CMD_AUDIO_INPUT_NEURAL_AEC_ENABLE, kPlain, Action::kNeuralAecOn, kHotword, "neural echo canceller on"},
    {CMD_AUDIO_INPUT_NEURAL_AEC_DISABLE, kPlain, Action::kNeuralAecOff, kHotword, "neural echo canceller off"},
    {CMD_AUDIO_INPUT_MIC_SWAP_ENABLE, kPlain, Action::kMicSwapOn, kHotword, "mic swap on"},
    {CMD_AUDIO_INPUT_MIC_SWAP_DISABLE, kPlain, Action::kMicSwapOff, kHotword, "mic swap off"},
    {CMD_AUDIO_INPUT_SET_REFERENCE_SOURCE, kValue, Action::kSetReferenceSource, kHotword, "reference source"},
    {CMD_AUDIO_INPUT_SET_AP_PROCESS_WITH_DOCK, sizeof(ApProcessPayload), Action::kSetApProcessWithDock, kHotword, "AP process with dock"},

    {CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL, sizeof(WriteModelPayload), Action::kWriteModel, kHotword, "hotword write model"},
    {CMD_AUDIO_INPUT_HOTWORD_LOAD_MODEL, kPlain, Action::kLoadModel, kHotword, "hotword load model"},
    {CMD_AUDIO_INPUT_HOTWORD_UNLOAD_MODEL, kPlain, Action::kUnloadModel, kHotword, "hotword unload model"},
    {CMD_AUDIO_INPUT_HOTWORD_START, kPlain, Action::kStart, kHotword, "hotword start"},
    {CMD_AUDIO_INPUT_HOTWORD_STOP, kPlain, Action::kStop, kHotword, "hotword stop"},
    {CMD_AUDIO_INPUT_HOTWORD_FORCE_RECOGNITION, kPlain, Action::kForceRecognition, kHotword, "hotword force recognition"},
    {CMD_AUDIO_INPUT_HOTWORD_INTERNAL_RECOGNITION, sizeof(InternalRecognitionPayload), Action::kInternalRecognition, kHotword, "hotword internal recognition"},
    {CMD_AUDIO_INPUT_GET_HOTWORD_TIMESTAMP, sizeof(HotwordTimestampPayload), Action::kQueryHotwordTimestamp, kHotword, "hotword timestamp query"},

    {CMD_AUDIO_INPUT_AMBIENT_MUSIC_WRITE_MODEL, sizeof(WriteModelPayload), Action::kWriteModel, kMusic, "ambient music write model"},
    {CMD_AUDIO_INPUT_AMBIENT_MUSIC_LOAD_MODEL, kPlain, Action::kLoadModel, kMusic, "ambient music load model"},
    {CMD_AUDIO_INPUT_AMBIENT_MUSIC_UNLOAD_MODEL, kPlain, Action::kUnloadModel, kMusic, "ambient music unload model"},
    {CMD_AUDIO_INPUT_AMBIENT_MUSIC_START, kPlain, Action::kStart, kMusic, "ambient music start"},
    {CMD_AUDIO_INPUT_AMBIENT_MUSIC_STOP, kPlain, Action::kStop, kMusic, "ambient music stop"},
    {CMD_AUDIO_INPUT_AMBIENT_MUSIC_FORCE_RECOGNITION, kPlain, Action::kForceRecognition, kMusic, "ambient music force recognition"},

    {CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_WRITE_MODEL, sizeof(WriteModelPayload), Action::kWriteModel, kBreak, "ambient music break write model"},
    {CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_LOAD_MODEL, kPlain, Action::kLoadModel, kBreak, "ambient music break load model"},
    {CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_UNLOAD_MODEL, kPlain, Action::kUnloadModel, kBreak, "ambient music break unload model"},
    {CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_START, kPlain, Action::kStart, kBreak, "ambient music break start"},
    {CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_STOP, kPlain, Action::kStop, kBreak, "ambient music break stop"},

    {CMD_AUDIO_INPUT_GET_LIBRARY_ARCHITECTURE, sizeof(LibraryArchitecturePayload), Action::kQueryLibraryArchitecture, kHotword, "library architecture query"},

    {CMD_AUDIO_INPUT_HOTWORD_SET_ERASER_PRE_GAIN, kValue, Action::kSetTuning, kHotword, "tuning: eraser pre gain"},
    {CMD_AUDIO_INPUT_HOTWORD_SET_ERASER_POST_GAIN, kValue, Action::kSetTuning, kHotword, "tuning: eraser post gain"},
    {CMD_AUDIO_INPUT_HOTWORD_SET_NON_ERASER_GAIN, kValue, Action::kSetTuning, kHotword, "tuning: non-eraser gain"},
    {CMD_AUDIO_INPUT_HOTWORD_SET_CLEANER_POST_GAIN, kValue, Action::kSetTuning, kHotword, "tuning: cleaner post gain"},
    {CMD_AUDIO_INPUT_SET_CHRE_GAIN, kValue, Action::kSetTuning, kHotword, "tuning: CHRE gain"},
    {CMD_AUDIO_INPUT_SET_CHRE_SRC_AEC_TIMEOUT, kValue, Action::kSetTuning, kHotword, "tuning: CHRE source AEC timeout"},
    {CMD_AUDIO_INPUT_SET_CHRE_SRC_PDM_GAIN, kValue, Action::kSetTuning, kHotword, "tuning: CHRE source PDM gain"},
    {CMD_AUDIO_INPUT_SET_CHRE_SRC_AEC_GAIN, kValue, Action::kSetTuning, kHotword, "tuning: CHRE source AEC gain"},
};
// clang-format on

}  // namespace

const CommandInfo* FindCommand(uint32_t id) {
    const auto* found =
            std::ranges::find(kCommands, id, [](const CommandInfo& info) { return info.id; });
    return found == std::end(kCommands) ? nullptr : found;
}

std::string CommandName(uint32_t id) {
    const CommandInfo* info = FindCommand(id);
    return info == nullptr ? "unknown" : info->name;
}

}  // namespace virtual_dsp
