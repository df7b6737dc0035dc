#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"
#include "host/virtual_dsp/dsp/sample_pattern.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tests/board/board_fixture.h"
#include "tests/faults/result_tables.h"
#include "tests/faults/rig.h"
#include "tests/support/log_capture.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** Removes a device for as long as this object lives. */
class MissingNode {
  public:
    explicit MissingNode(const char* path) : path_(path), away_(std::string(path) + ".away") {
        std::filesystem::rename(path_, away_);
    }
    ~MissingNode() { std::filesystem::rename(away_, path_); }
    MissingNode(const MissingNode&) = delete;
    MissingNode& operator=(const MissingNode&) = delete;

  private:
    const std::filesystem::path path_;
    const std::filesystem::path away_;
};

/** The library on a virtual board. */
class BoardRigTest : public ::virtual_dsp::BoardTest {
  protected:
    // Three chunks, so that there is a first, a middle and a last one.
    static constexpr size_t kModelBytes = 40000;

    void NewRig(size_t model_bytes = kModelBytes) {
        rig_.reset();
        board_.reset();
        ::virtual_dsp::BoardTest::SetUp();
        board_->SetTuningFile(tuning_);
        BuildHal(model_bytes);
    }

    void BuildHal(size_t model_bytes = kModelBytes) {
        rig_.reset();
        rig_ = std::make_unique<Rig>(
                SoundTriggerHalBuilder::BuildSoundTriggerHal(), [this](int) { PlayHotword(); },
                Model(::virtual_dsp::Engine::kHotword, model_bytes),
                Model(::virtual_dsp::Engine::kAmbientMusic, model_bytes));
    }

    void PlayHotword() {
        EXPECT_TRUE(board_->microphone()
                            .Play(::virtual_dsp::PatternFrames(kFirst, kFrames + 640))
                            .get());
    }

    void AddFaults(const std::string& rules) {
        const auto script = ::virtual_dsp::ParseFaults(rules);
        ASSERT_TRUE(script.ok()) << rules << ": " << script.error();
        for (const auto& rule : script->rules) board_->faults().Add(rule);
    }

    static std::vector<uint8_t> Model(::virtual_dsp::Engine engine, size_t bytes) {
        return ::virtual_dsp::BuildSoundModel(
                {engine, 0.7F, ::virtual_dsp::PatternChannel(kFirst, kFrames, 0)}, bytes);
    }

    // A tuning file that sets each of these parameters, in both modes.
    static std::vector<uint8_t> TuningOf(const std::vector<uint32_t>& ids) {
        std::vector<uint8_t> records;
        for (const uint32_t id : ids) {
            const uint32_t record[] = {id, sizeof(int32_t), 1};
            const auto* const bytes = reinterpret_cast<const uint8_t*>(record);
            records.insert(records.end(), bytes, bytes + sizeof(record));
        }
        utils::tamberlo::TuningFile file;
        for (const uint32_t mode : {0U, 86U}) {
            file.modes[mode][4].push_back({.id = 1, .data = records});
        }
        return utils::tamberlo::WriteTuningFile(file).value();
    }

    static constexpr uint64_t kFirst = 12000;
    static constexpr uint64_t kFrames = 1600;

    void SetUp() override {}
    void TearDown() override { rig_.reset(); }

    LogCapture log_;
    std::vector<uint8_t> tuning_;
    std::unique_ptr<Rig> rig_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
