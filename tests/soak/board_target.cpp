#include <array>
#include <cerrno>
#include <cstring>

#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"
#include "host/virtual_dsp/board/board.h"
#include "host/virtual_dsp/dsp/sample_pattern.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tests/soak/soak_target.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using ::virtual_dsp::Board;
using ::virtual_dsp::Engine;
using namespace zyl;

// The tuning type is sent as the value of this parameter.
constexpr uint32_t kTunedParameter = CMD_AUDIO_INPUT_HOTWORD_SET_ERASER_PRE_GAIN;

// A file with a block for each of the modes default and docked.
std::vector<uint8_t> TuningFileBytes() {
    constexpr uint32_t kSoundTriggerBlocks = 4;
    utils::tamberlo::TuningFile file;
    for (const auto& [mode, value] : {std::pair(0U, 1U), std::pair(86U, 2U)}) {
        const std::array<uint32_t, 3> record = {kTunedParameter, sizeof(value), value};
        std::vector<uint8_t> data(sizeof(record));
        std::memcpy(data.data(), record.data(), sizeof(record));
        file.modes[mode][kSoundTriggerBlocks].push_back({.id = 1, .data = std::move(data)});
    }
    return utils::tamberlo::WriteTuningFile(file).value();
}

uint16_t CommandOf(DspCall call) {
    const bool is_hotword = call.argument == 1;
    const bool is_on = call.argument != 0;
    const auto choose = [](bool first, uint32_t one, uint32_t other) {
        return static_cast<uint16_t>(first ? one : other);
    };
    switch (call.op) {
        case DspOp::kLoad:
            return choose(is_hotword, CMD_AUDIO_INPUT_HOTWORD_LOAD_MODEL,
                          CMD_AUDIO_INPUT_AMBIENT_MUSIC_LOAD_MODEL);
        case DspOp::kUnload:
            return choose(is_hotword, CMD_AUDIO_INPUT_HOTWORD_UNLOAD_MODEL,
                          CMD_AUDIO_INPUT_AMBIENT_MUSIC_UNLOAD_MODEL);
        case DspOp::kStart:
            return choose(is_hotword, CMD_AUDIO_INPUT_HOTWORD_START,
                          CMD_AUDIO_INPUT_AMBIENT_MUSIC_START);
        case DspOp::kStop:
            return choose(is_hotword, CMD_AUDIO_INPUT_HOTWORD_STOP,
                          CMD_AUDIO_INPUT_AMBIENT_MUSIC_STOP);
        case DspOp::kForce:
            return choose(is_hotword, CMD_AUDIO_INPUT_HOTWORD_FORCE_RECOGNITION,
                          CMD_AUDIO_INPUT_AMBIENT_MUSIC_FORCE_RECOGNITION);
        case DspOp::kInternal:
            return CMD_AUDIO_INPUT_HOTWORD_INTERNAL_RECOGNITION;
        case DspOp::kEraser:
            return choose(is_on, CMD_AUDIO_INPUT_HOTWORD_ERASER_ENABLE,
                          CMD_AUDIO_INPUT_HOTWORD_ERASER_DISABLE);
        case DspOp::kNeuralAec:
            return choose(is_on, CMD_AUDIO_INPUT_NEURAL_AEC_ENABLE,
                          CMD_AUDIO_INPUT_NEURAL_AEC_DISABLE);
        case DspOp::kMicSwap:
            return choose(is_on, CMD_AUDIO_INPUT_MIC_SWAP_ENABLE, CMD_AUDIO_INPUT_MIC_SWAP_DISABLE);
        case DspOp::kReference:
            return CMD_AUDIO_INPUT_SET_REFERENCE_SOURCE;
        case DspOp::kApProcess:
            return CMD_AUDIO_INPUT_SET_AP_PROCESS_WITH_DOCK;
        case DspOp::kTuning:
            return static_cast<uint16_t>(kTunedParameter);
        case DspOp::kQuery:
            return CMD_AUDIO_INPUT_GET_LIBRARY_ARCHITECTURE;
        case DspOp::kRead:
            break;  // No command.
    }
    return 0;
}

class BoardTarget final : public SoakTarget {
  public:
    explicit BoardTarget(std::unique_ptr<Board> board) : board_(std::move(board)) {
        board_->SetTuningFile(TuningFileBytes());
    }

    std::unique_ptr<SoundTriggerHal> BuildHal() override {
        return SoundTriggerHalBuilder::BuildSoundTriggerHal();
    }
    std::vector<uint8_t> Model(int engine, int number) const override {
        return ::virtual_dsp::BuildSoundModel(
                {static_cast<Engine>(engine), 0.7F,
                 ::virtual_dsp::PatternChannel(static_cast<uint64_t>(number) * 3200, 1600, 0)},
                number == 1 ? size_t{3} * kModelChunkBytes + 5 : 0);
    }

    DspView View() override {
        const auto settings = board_->dsp().settings();
        DspView view;
        view.up = board_->dsp().IsUp();
        view.hotword = ViewOf(Engine::kHotword);
        view.ambient = ViewOf(Engine::kAmbientMusic);
        view.eraser = settings.eraser;
        view.neural_aec = settings.neural_aec;
        view.mic_swap = settings.mic_swap;
        view.dock_reference = settings.reference_source == kReferenceSourceDock;
        view.dock_ap_process = settings.ap_process_with_dock;
        for (const auto& [id, value] : settings.tuning) {
            if (id == kTunedParameter) view.tuning = value;
        }
        return view;
    }
    bool HasRecord() override { return board_->dsp().HasNotification(); }
    void Detect(int engine) override {
        const CommandHeader header{0, 0, sizeof(CommandHeader), CommandOf({DspOp::kForce, engine}),
                                   0};
        std::vector<uint8_t> command(sizeof(header));
        std::memcpy(command.data(), &header, sizeof(header));
        std::vector<uint8_t> reply;
        (void)board_->dsp().Execute(command, &reply);
    }
    void Crash() override { board_->dsp().Crash(); }
    void Boot() override { board_->dsp().Boot(); }
    void Fail(DspCall call, int times) override {
        ::virtual_dsp::FaultRule rule;
        rule.operation = ::virtual_dsp::FaultOperation::kReply;
        rule.command_id = CommandOf(call);
        rule.times = static_cast<uint32_t>(times);
        rule.effect.value = EIO;
        board_->faults().Add(rule);
    }
    void FailNextRead(int) override {}
    void SetAudioFault(bool) override {}
    bool has_plain_payloads() const override { return false; }

  private:
    DspView::EngineView ViewOf(Engine engine) {
        const auto seen = board_->dsp().engine(engine);
        DspView::EngineView view;
        if (seen.armed_without_model) view.state = DspView::State::kArmedWithoutModel;
        if (seen.detecting) view.state = DspView::State::kDetecting;
        if (seen.detected) view.state = DspView::State::kDetected;
        if (seen.model_loaded) view.model = static_cast<uint32_t>(seen.model_crc32);
        return view;
    }

    const std::unique_ptr<Board> board_;
};

}  // namespace

host::Result<std::unique_ptr<SoakTarget>> MakeBoardTarget() {
    auto board = Board::Create({});
    if (!board.ok()) return host::Error(board.error());
    return std::make_unique<BoardTarget>(std::move(*board));
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
