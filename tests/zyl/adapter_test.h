#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_sound_trigger_adapter.h"
#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"
#include "host/virtual_dsp/dsp/sample_pattern.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tests/board/board_fixture.h"
#include "tests/support/log_capture.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {

using ::testing::ElementsAre;
using ::virtual_dsp::BoardOptions;
using ::virtual_dsp::CommandAnswered;
using ::virtual_dsp::Engine;
using ::virtual_dsp::PatternFrames;
using ::virtual_dsp::PatternSample;

inline constexpr int kHotword = 1;
inline constexpr int kAmbient = 2;
inline constexpr int kAmbientBreak = 3;

// The microphone of these tests plays the sample pattern, and the models listen for this stretch of
// it. A detection's audio begins with the 500 ms before the stretch.
inline constexpr uint64_t kTemplateFirst = 12000;
inline constexpr uint64_t kTemplateFrames = 1600;
inline constexpr uint64_t kTemplateEnd = kTemplateFirst + kTemplateFrames;
inline constexpr uint64_t kCaptureFirst = kTemplateFirst - 8000;

using Lines = LogCapture::Lines;

// A line that the adapter logs.
inline std::string Line(char severity, const std::string& text) {
    std::string line{severity};
    return line.append(" Sthal::ZylSoundTriggerAdapter: ").append(text);
}

inline constexpr uint32_t kDefaultMode = 0;
inline constexpr uint32_t kDockedMode = 86;

/**
 * A parameter record of the tuning file: its id, the length that it states, the words of its value.
 */
inline std::vector<uint8_t> TuningRecord(uint32_t id, uint32_t length,
                                         const std::vector<uint32_t>& words) {
    std::vector<uint8_t> bytes(8 + words.size() * 4);
    memcpy(&bytes[0], &id, 4);
    memcpy(&bytes[4], &length, 4);
    if (!words.empty()) memcpy(&bytes[8], words.data(), words.size() * 4);
    return bytes;
}

inline std::vector<uint8_t> operator+(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/** A tuning file: for each mode, the sound trigger's blocks and one block of another type. */
inline std::vector<uint8_t> TuningImage(
        const std::map<uint32_t, std::vector<std::vector<uint8_t>>>& modes) {
    utils::tamberlo::TuningFile file;
    for (const auto& [mode, blocks] : modes) {
        for (const auto& data : blocks) file.modes[mode][4].push_back({.id = 1, .data = data});
        file.modes[mode][1].push_back({.id = 1, .data = TuningRecord(297, 4, {0xDEAD})});
    }
    return utils::tamberlo::WriteTuningFile(file).value();
}

/** Access to private functions of the adapter. */
class ZylSoundTriggerAdapterPeer {
  public:
    explicit ZylSoundTriggerAdapterPeer(ZylSoundTriggerAdapter* adapter) : adapter_(adapter) {}

    int DoModelAction(int engine, int action) {
        return adapter_->DoModelAction(engine,
                                       static_cast<ZylSoundTriggerAdapter::ActionType>(action));
    }
    bool ReadTimestampOffset(int64_t& offset) { return adapter_->ReadTimestampOffset(offset); }

  private:
    ZylSoundTriggerAdapter* const adapter_;
};

/**
 * Replaces a node by a plain file for as long as this object lives. A read then finds exactly these
 * bytes, and the end of the file after them. Without contents, nothing is in the node's place. Only
 * this process sees the change.
 */
class ReplacedNode {
  public:
    ReplacedNode(const char* path, const std::optional<std::string>& contents)
        : path_(path), target_(std::filesystem::read_symlink(path)) {
        std::filesystem::remove(path_);
        if (contents) std::ofstream(path_) << *contents;
    }
    ~ReplacedNode() {
        std::filesystem::remove(path_);
        std::filesystem::create_symlink(target_, path_);
    }
    ReplacedNode(const ReplacedNode&) = delete;
    ReplacedNode& operator=(const ReplacedNode&) = delete;

  private:
    const std::filesystem::path path_;
    const std::filesystem::path target_;
};

inline size_t OpenDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

/** The adapter on a virtual board. */
class AdapterTest : public ::virtual_dsp::BoardTest {
  protected:
    void SetUp() override { NewBoard(FastOptions()); }

    void TearDown() override {
        adapter_.reset();
        board_.reset();
        if (HasFailure()) std::cerr << ::testing::PrintToString(log_.Take()) << '\n';
    }

    static BoardOptions FastOptions() {
        BoardOptions options;
        options.microphone.speed = ::virtual_dsp::MicrophoneOptions::kAsFastAsPossible;
        return options;
    }

    void NewBoard(const BoardOptions& options) {
        adapter_.reset();
        board_.reset();
        auto board = ::virtual_dsp::Board::Create(options);
        ASSERT_TRUE(board.ok()) << board.error();
        board_ = std::move(*board);
        NewAdapter();
        (void)log_.Take();  // The line that there is no tuning file.
    }

    void NewAdapter() {
        adapter_ = std::make_unique<ZylSoundTriggerAdapter>(
                std::make_unique<utils::File>(kCommandDevice, O_RDWR | O_NONBLOCK),
                std::make_unique<ZylSoundTriggerTuningManager>(kTuningFile));
    }

    ZylSoundTriggerAdapterPeer Peer() { return ZylSoundTriggerAdapterPeer(adapter_.get()); }

    // Replaces the plan of faults.
    void SetFaults(const std::vector<std::string>& lines) {
        board_->faults().Clear();
        for (const std::string& line : lines) AddFault(line);
    }

    // The commands that the DSP has got since the last call of a Take function.
    std::vector<CommandAnswered> TakeCommands() {
        std::vector<CommandAnswered> commands;
        for (const auto& entry : board_->dsp().journal().Snapshot()) {
            if (const auto* command = entry.As<CommandAnswered>()) commands.push_back(*command);
        }
        board_->dsp().journal().Clear();
        return commands;
    }

    // In hexadecimal, with "??" for the sequence number.
    static std::vector<std::string> HexOf(const std::vector<CommandAnswered>& commands) {
        std::vector<std::string> texts;
        for (const auto& command : commands) {
            std::string text;
            for (const uint8_t byte : command.bytes) {
                text += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
            }
            texts.push_back(text.replace(2, 2, "??"));
        }
        return texts;
    }
    std::vector<std::string> TakeSent() { return HexOf(TakeCommands()); }

    std::vector<uint32_t> TakeIds() {
        std::vector<uint32_t> ids;
        for (const auto& command : TakeCommands()) ids.push_back(command.id.value_or(0));
        return ids;
    }

    // A model of at least `bytes` bytes that listens for the stretch.
    static std::vector<uint8_t> Model(int engine, size_t bytes = 0) {
        const auto pcm = ::virtual_dsp::PatternChannel(kTemplateFirst, kTemplateFrames, 0);
        return ::virtual_dsp::BuildSoundModel({static_cast<Engine>(engine), 0.7F, pcm}, bytes);
    }

    int Load(int engine, const std::vector<uint8_t>& model) {
        return adapter_->LoadSoundModelToDsp(engine, static_cast<int>(model.size()),
                                             reinterpret_cast<const char*>(model.data()));
    }

    void LoadAndStart(int engine) {
        ASSERT_EQ(0, Load(engine, Model(engine)));
        ASSERT_EQ(0, adapter_->StartDetectionInDsp(engine));
    }

    // Waits for a record and returns its engine, -1 when there is none.
    int TakeDetection() {
        pollfd wait{adapter_->GetNotificationFileDescriptor(), POLLIN, 0};
        EXPECT_EQ(1, poll(&wait, 1, std::chrono::milliseconds(kDeadline).count()));
        int engine = -1;
        std::string payload;
        EXPECT_EQ(0, adapter_->ReadDspNotification(&engine, payload));
        return engine;
    }

    LogCapture log_;
    std::unique_ptr<ZylSoundTriggerAdapter> adapter_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
