#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "host/virtual_dsp/dsp/dsp.h"
#include "host/virtual_dsp/dsp/sample_pattern.h"
#include "host/virtual_dsp/dsp/sound_model.h"

namespace virtual_dsp {

using namespace ::vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl;

struct EngineCommands {
    uint16_t write, load, unload, start, stop;
};

constexpr EngineCommands CommandsOf(Engine engine) {
    switch (engine) {
        case Engine::kHotword:
            return {260, 261, 262, 227, 228};
        case Engine::kAmbientMusic:
            return {263, 264, 265, 256, 257};
        case Engine::kAmbientMusicBreak:
            return {287, 288, 289, 283, 284};
    }
    return {};
}

// A DSP whose microphones hear nothing but the sample pattern, frame by frame from 0 on. Models are
// stretches of the pattern, so the tests know every detection and captured frame that is correct.
class DspTest : public ::testing::Test {
  protected:
    static constexpr size_t kTemplateFrames = 4000;
    static constexpr uint64_t kPrerollFrames = 8000;

    static std::vector<uint8_t> Model(Engine engine, uint64_t first) {
        return BuildSoundModel({engine, 0.7F, PatternChannel(first, kTemplateFrames, 0)});
    }

    int Send(uint16_t id, std::vector<uint8_t> payload = {}) {
        const CommandHeader header{0, 0, static_cast<uint16_t>(sizeof(header) + payload.size()), id,
                                   0};
        std::vector<uint8_t> command(sizeof(header));
        std::memcpy(command.data(), &header, sizeof(header));
        command.insert(command.end(), payload.begin(), payload.end());
        return dsp_.Execute(command, &reply_);
    }
    int SendValue(uint16_t id, uint32_t value) {
        std::vector<uint8_t> payload(sizeof(value));
        std::memcpy(payload.data(), &value, sizeof(value));
        return Send(id, payload);
    }

    // Returns the result of the load command.
    int Download(Engine engine, std::span<const uint8_t> model) {
        for (size_t at = 0; at < model.size(); at += kModelChunkBytes) {
            const size_t count = std::min<size_t>(kModelChunkBytes, model.size() - at);
            EXPECT_EQ(static_cast<int>(count), dsp_.WriteModelChunk(model.subspan(at, count)));
            EXPECT_EQ(0, SendValue(CommandsOf(engine).write, static_cast<uint32_t>(at)));
        }
        return Send(CommandsOf(engine).load);
    }
    void Arm(Engine engine, uint64_t template_first) {
        ASSERT_EQ(0, Download(engine, Model(engine, template_first)));
        ASSERT_EQ(0, Send(CommandsOf(engine).start));
    }

    // The microphones hear the pattern up to frame `end`.
    void HearUntil(uint64_t end, uint64_t block = 160) {
        while (heard_ < end) {
            const uint64_t count = std::min(block, end - heard_);
            now_ns_ += static_cast<int64_t>(count) * ns_per_frame_;
            dsp_.Hear(PatternFrames(heard_, count), now_ns_);
            heard_ += count;
        }
    }

    // What the notification node holds, as "id payload".
    std::vector<std::string> TakeRecords() {
        std::vector<std::string> records;
        while (const auto record = dsp_.TakeNotification()) {
            records.push_back(std::to_string(record->id) + " " + record->payload.data());
        }
        return records;
    }

    // The journal's entries of one kind.
    template <typename Kind>
    std::vector<Kind> EntriesOf() {
        std::vector<Kind> entries;
        for (const JournalEntry& entry : dsp_.journal().Snapshot()) {
            if (const auto* what = entry.As<Kind>()) entries.push_back(*what);
        }
        return entries;
    }

    std::vector<uint8_t> ReadAll(PcmPort port, size_t at_most = SIZE_MAX) {
        std::vector<uint8_t> bytes(std::min(at_most, dsp_.PcmBytesReady(port)));
        const int count = dsp_.ReadPcm(port, bytes);
        EXPECT_GE(count, 0);
        bytes.resize(static_cast<size_t>(std::max(count, 0)));
        return bytes;
    }

    int64_t now_ns_ = 5'000'000'000;
    int64_t ns_per_frame_ = 1'000'000'000 / kSampleRateHz;
    uint64_t heard_ = 0;
    std::vector<uint8_t> reply_;
    Dsp dsp_{{.boottime_ns = [this] { return now_ns_; }}};
};

}  // namespace virtual_dsp
